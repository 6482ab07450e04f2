#!/usr/bin/env bash
# The Debian packages end to end, on a build of their own (build-deb, configured for /usr with
# Debian's hardening flags): checks the library's binary interface against abi/libqel.so.1.abi
# and its exported names, checks that qellog's manual page renders without a warning, builds
# libqel1, libqel-dev and qellog, has lintian judge them as packed under the umasks 002 and
# 022 (the build is done once, only the packing twice), checks the manual page in the qellog
# package, installs them with dpkg, builds and runs the C and C++ examples against the system
# paths through find_package and pkg-config, compiles a C99 program with the installed
# headers, logs a few records with /usr/bin/qellog and reads them back, and purges the
# packages again, also when a step fails. Exits non-zero on the first failure.
#   bash .ci/packages.sh
set -euo pipefail
cd "$(dirname "$0")/.."
build=build-deb
packages=(qellog libqel-dev libqel1)

needed=(abigail-tools lintian dpkg-dev pkg-config man-db file cmake ninja-build g++)
bash .ci/install-missing.sh "${needed[@]}"

bash .ci/install-missing.sh  # what the build needs

work=$(mktemp -d /tmp/qel-packages.XXXXXX)
purge() {
    dpkg --purge "${packages[@]}" >/dev/null 2>&1 || true
}
cleanup() {
    purge
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM
trap 'echo "FAIL: line $LINENO: $BASH_COMMAND"' ERR
for package in "${packages[@]}"; do
    if dpkg -s "$package" >/dev/null 2>&1; then
        echo "note: $package was installed already (left from an earlier run?); it is purged now"
    fi
done
purge

echo "---- build and package"
flags() { DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get "$1"; }
rm -f "$build"/*.deb
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
    -DQEL_BUILD_TESTS=OFF -DQEL_BUILD_TOOLS=ON \
    -DCMAKE_C_FLAGS="$(flags CFLAGS) $(flags CPPFLAGS)" \
    -DCMAKE_CXX_FLAGS="$(flags CXXFLAGS) $(flags CPPFLAGS)" \
    -DCMAKE_EXE_LINKER_FLAGS="$(flags LDFLAGS)" -DCMAKE_SHARED_LINKER_FLAGS="$(flags LDFLAGS)" \
    >/dev/null
cmake --build "$build" -j2

echo "---- binary interface"
library=$(readlink -f "$build/libqel.so")
bash abi/check-abi.sh "$library"
bash abi/check-exported-symbols.sh "$library" abi/exported-symbols.txt

echo "---- manual page"
# groff's warnings (a bad macro, a line that cannot be set) fail, as lintian's check does.
render_man_page() {  # FILE: renders it, fails on any warning
    MANWIDTH=80 LC_ALL=C.UTF-8 man --warnings -E UTF-8 -l "$1" > "$work/man.txt" \
        2> "$work/man-warnings.txt"
    if [ -s "$work/man-warnings.txt" ] || ! grep -q '^EXIT STATUS' "$work/man.txt"; then
        echo "the manual page $1 does not render cleanly:"
        cat "$work/man-warnings.txt"
        return 1
    fi
}
render_man_page packaging/man/qellog.1

debs=()
# Packs the packages under umask $1 (the build is not redone) and has lintian judge them:
# errors fail, and so does a warning whose tag packaging/README.md does not explain.
package_and_lint() {
    (umask "$1" && cmake "$build" >/dev/null && cmake --build "$build" --target package)
    debs=()
    for package in "${packages[@]}"; do
        debs+=("$(ls "$build/${package}"_*.deb)")
    done
    echo "---- lintian, packed under umask $1"
    lintian --tag-display-limit 0 "${debs[@]}" 2>&1 | tee "$work/lintian.txt" || true
    if grep -q '^E: ' "$work/lintian.txt"; then
        echo "lintian reports errors (umask $1)"
        return 1
    fi
    local tag
    for tag in $(sed -n 's/^W: [^:]*: \([a-z0-9-]*\).*/\1/p' "$work/lintian.txt" | sort -u); do
        if ! grep -q "^- \`$tag\`" packaging/README.md; then
            echo "lintian warning $tag is not explained in packaging/README.md (umask $1)"
            return 1
        fi
    done
}
package_and_lint 002
package_and_lint 022

echo "---- the manual page in the qellog package"
qellog_deb=$(ls "$build"/qellog_*.deb)
dpkg-deb --fsys-tarfile "$qellog_deb" | tar -xOf - ./usr/share/man/man1/qellog.1.gz \
    | gunzip > "$work/packaged-qellog.1"
cmp "$work/packaged-qellog.1" packaging/man/qellog.1
render_man_page "$work/packaged-qellog.1"

echo "---- install"
dpkg -i "${debs[@]}"
dpkg -L libqel1 | grep -q "^/usr/lib/x86_64-linux-gnu/libqel.so.1$"
[ "$(/usr/bin/qellog --version)" = "qellog $(pkg-config --modversion qel)" ]
# qellog runs with the RE2 and zlib it was built with: dpkg-shlibdeps must have found both.
qellog_depends=$(dpkg-query -W -f='${Depends}' qellog)
for library in libre2 zlib1g; do
    [[ "$qellog_depends" == *"$library"* ]] || { echo "qellog does not depend on $library"; exit 1; }
done
version=$(pkg-config --modversion qel)

# Each example logs to the console and into its log folder; its first record must show up.
run_example() {
    local binary=$1 module=$2
    local loaded
    loaded=$(ldd "$binary" | sed -n 's/.*libqel\.so\.1 => \([^ ]*\).*/\1/p')
    [ "$(readlink -f "$loaded")" = "$(readlink -f /usr/lib/x86_64-linux-gnu/libqel.so.1)" ] || {
        echo "$binary loads libqel.so.1 from '$loaded', not the installed one"
        return 1
    }
    (cd "$work" && "$binary" "$work/logs-$module" > "$work/console.txt")
    grep -q "^\[$module\]\[V$version I " "$work/console.txt" || {
        cat "$work/console.txt"
        return 1
    }
}

echo "---- the examples against the system paths"
for lang in c cpp; do
    cmake -S "examples/$lang" -B "$work/cmake-$lang" -G Ninja >/dev/null
    cmake --build "$work/cmake-$lang"
    run_example "$work/cmake-$lang/qel_example_$lang" "example-$lang"
done
read -r -a qel_flags <<< "$(pkg-config --cflags --libs qel)"
cc -std=c11 -Wall -Wextra -pedantic -Werror examples/c/main.c "${qel_flags[@]}" -pthread \
    -o "$work/pkgconfig-c"
run_example "$work/pkgconfig-c" example-c
c++ -std=c++17 -Wall -Wextra -pedantic -Werror examples/cpp/main.cpp "${qel_flags[@]}" \
    -o "$work/pkgconfig-cpp"
run_example "$work/pkgconfig-cpp" example-cpp

echo "---- a C99 program with the installed headers"
cat > "$work/c99.c" <<'EOF'
#include <qel/qel.h>

int main(void) {
    const char* message = errorGetErrorCodeString((int)0x80300206u);
    qelLogConfigConsoleWriter(false);
    return message != NULL && qelLogSimplify("c99", QEL_LOG_INFO, message) == 0 ? 0 : 1;
}
EOF
cc -std=c99 -Wall -Wextra -pedantic-errors -Werror "$work/c99.c" "${qel_flags[@]}" -o "$work/c99"
"$work/c99"

echo "---- /usr/bin/qellog"
printf 'first record\nsecond record\nthird record\n' \
    | /usr/bin/qellog --no-console --module ci --folder "$work/qellog-logs" --max-size 100
/usr/bin/qellog cat "$work/qellog-logs" > "$work/qellog-cat.txt"
cat "$work/qellog-cat.txt"
[ "$(grep -c '^\[ci\]\[V.* I .*\].* record$' "$work/qellog-cat.txt")" -eq 3 ]
# Minimal systems may leave the manual pages out (dpkg's path-exclude); when installed,
# man finds it.
if [ -f /usr/share/man/man1/qellog.1.gz ]; then
    [ "$(man -w qellog)" = /usr/share/man/man1/qellog.1.gz ]
fi

echo "---- purge"
purge
for package in "${packages[@]}"; do
    if dpkg -s "$package" >/dev/null 2>&1; then
        echo "$package is still installed"
        exit 1
    fi
done
[ ! -e /usr/include/qel ] && [ ! -e /usr/bin/qellog ] && [ ! -e /usr/lib/qellog ]
echo "packages built, judged, installed, used and purged"
