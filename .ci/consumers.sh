#!/usr/bin/env bash
# Installs a built tree into a temporary prefix and uses it the way the kit's other libraries
# and applications do: checks the installed files, compiles the C interface headers as C and
# as C++, and builds and runs the C and C++ examples against the prefix, once through CMake's
# find_package and once through pkg-config.
#
#   bash .ci/consumers.sh BUILD_DIR
#
# Exits non-zero when anything fails; every failure is listed at the end. Set
# QEL_KEEP_CONSUMER_DIR=1 to keep the temporary directory for a look afterwards.
set -euo pipefail
cd "$(dirname "$0")/.."
source_dir=$PWD

if [[ $# -ne 1 || ! -d "$1" ]]; then
    echo "usage: $0 BUILD_DIR" >&2
    exit 2
fi
build_dir=$(cd "$1" && pwd)

CC=${CC:-cc}
CXX=${CXX:-c++}
generator=()
if command -v ninja >/dev/null; then
    generator=(-G Ninja)
fi
command -v pkg-config >/dev/null || (apt-get update && apt-get install -y pkg-config)

work=$(mktemp -d "${TMPDIR:-/tmp}/qel-consumers.XXXXXX")
cleanup() {
    if [[ -n "${QEL_KEEP_CONSUMER_DIR:-}" ]]; then
        echo "kept $work"
    else
        rm -rf "$work"
    fi
}
trap cleanup EXIT

failures=()
fail() {
    echo "FAIL: $*"
    failures+=("$*")
}
section() { printf '\n---- %s\n' "$*"; }

version_part() {
    sed -n "s/^#define QEL_VERSION_$1 \([0-9]*\).*/\1/p" "$source_dir/include/qel/version.h"
}
major=$(version_part MAJOR)
version="$major.$(version_part MINOR).$(version_part PATCH)"

# ---- Install -------------------------------------------------------------------------------
section "Installing $build_dir into a temporary prefix"
prefix=$work/prefix
cmake --install "$build_dir" --prefix "$prefix" > "$work/install.log"
pc_file=$(find "$prefix" -name qel.pc -path '*/pkgconfig/*' | head -n 1)
if [[ -z "$pc_file" ]]; then
    cat "$work/install.log"
    echo "FAIL: no qel.pc installed; nothing else can be checked"
    exit 1
fi
libdir=$(dirname "$(dirname "$pc_file")")
echo "prefix $prefix, libraries in ${libdir#"$prefix"/}"

# ---- The installed tree --------------------------------------------------------------------
section "Checking the installed tree"
real_name=libqel.so.$version
soname=libqel.so.$major
[[ -f "$libdir/$real_name" && ! -L "$libdir/$real_name" ]] || fail "$real_name is not a file"
[[ "$(readlink "$libdir/$soname" 2>/dev/null)" == "$real_name" ]] || fail "$soname does not link to $real_name"
[[ "$(readlink "$libdir/libqel.so" 2>/dev/null)" == "$soname" ]] || fail "libqel.so does not link to $soname"
if [[ -f "$libdir/$real_name" ]]; then
    dynamic=$(readelf -d "$libdir/$real_name")
    grep -q "Library soname: \[$soname\]" <<< "$dynamic" || fail "the SONAME is not $soname"
    if grep -E "\((RPATH|RUNPATH)\)" <<< "$dynamic" | grep -q "$build_dir"; then
        fail "the installed library still searches the build tree"
    fi
    bash "$source_dir/abi/check-exported-symbols.sh" "$libdir/$real_name" \
        "$source_dir/abi/exported-symbols.txt" || fail "the installed library exports other symbols"
fi

for header in "$source_dir"/include/qel/*.h; do
    [[ -f "$prefix/include/qel/$(basename "$header")" ]] || fail "include/qel/$(basename "$header") is not installed"
done
cmake_dir=$libdir/cmake/qel
for file in qelConfig.cmake qelConfigVersion.cmake qelTargets.cmake; do
    [[ -f "$cmake_dir/$file" ]] || fail "${cmake_dir#"$prefix"/}/$file is not installed"
done

# qel::qel gives consumers its include directory, the library and the threads library, no
# language standard and no options: a C program must not get C++ requirements.
if grep -E "INTERFACE_(COMPILE_FEATURES|COMPILE_OPTIONS|COMPILE_DEFINITIONS)" \
        "$cmake_dir/qelTargets.cmake"; then
    fail "qel::qel passes usage requirements on beyond its include directory"
fi
link_interface=$(sed -n 's/^ *INTERFACE_LINK_LIBRARIES "\(.*\)"$/\1/p' "$cmake_dir/qelTargets.cmake")
[[ "$link_interface" == "Threads::Threads" ]] \
    || fail "qel::qel links '$link_interface' into its consumers, not the threads library alone"

# The tree holds the library, its headers, its packages and the tools, nothing built for tests.
stray=$(find "$prefix" \( -iname '*test*' -o -iname '*gtest*' -o -iname '*gmock*' \
                           -o -iname '*bench*' -o -name '*.a' -o -name '*.o' \) -print)
[[ -z "$stray" ]] || fail "test or benchmark artefacts installed: $stray"
(cd "$prefix" && find . -mindepth 1 | sort)

# The version file takes 1.x requests up to the installed version and nothing of another major.
section "Checking the package version rules"
cat > "$work/version-check.cmake" <<'EOF'
# Asks the installed version file whether it satisfies find_package(qel REQUEST).
string(REPLACE "." ";" fields "${PACKAGE_FIND_VERSION}")
list(GET fields 0 PACKAGE_FIND_VERSION_MAJOR)
list(GET fields 1 PACKAGE_FIND_VERSION_MINOR)
set(CMAKE_SIZEOF_VOID_P 8)
include("${VERSION_FILE}")
if(PACKAGE_VERSION_COMPATIBLE)
    message("TRUE")
else()
    message("FALSE")
endif()
EOF
minor=$(version_part MINOR)
for request in "$major.0:TRUE" "$version:TRUE" "$major.$((minor + 1)):FALSE" \
               "$((major + 1)).0:FALSE" "$((major - 1)).0:FALSE"; do
    wanted=${request#*:}
    answer=$(cmake -DPACKAGE_FIND_VERSION="${request%%:*}" \
                   -DVERSION_FILE="$cmake_dir/qelConfigVersion.cmake" -P "$work/version-check.cmake" 2>&1)
    echo "find_package(qel ${request%%:*}): compatible $answer"
    [[ "$answer" == "$wanted" ]] || fail "find_package(qel ${request%%:*}) should give compatible $wanted"
done

# ---- The public headers --------------------------------------------------------------------
# Every header compiles on its own with -pedantic-errors: the C ones as C99 and C11, all of them
# as C++11 and C++17; <qel/qel.h> includes every other header.
section "Compiling the public headers"
c_headers=(qel.h log.h error.h version.h export.h)
for header in "$prefix"/include/qel/*.h; do
    name=$(basename "$header")
    if [[ $name != qel.h ]] && ! grep -q "#include <qel/$name>" "$prefix/include/qel/qel.h"; then
        fail "qel/qel.h does not include qel/$name"
    fi
    printf '#include <qel/%s>\nint main() { return 0; }\n' "$name" > "$work/cxx_$name.cpp"
    for std in c++11 c++17; do
        "$CXX" -std=$std -Wall -Wextra -pedantic-errors -Werror -I"$prefix/include" \
            -c "$work/cxx_$name.cpp" -o "$work/cxx_$name.o" || fail "qel/$name does not compile as $std"
    done
done
for name in "${c_headers[@]}"; do
    printf '#include <qel/%s>\nint main(void) { return 0; }\n' "$name" > "$work/c_$name.c"
    for std in c99 c11; do
        "$CC" -std=$std -Wall -Wextra -pedantic-errors -Werror -I"$prefix/include" \
            -c "$work/c_$name.c" -o "$work/c_$name.o" || fail "qel/$name does not compile as $std"
    done
done

# ---- The examples --------------------------------------------------------------------------
# Runs one example in a directory of its own and checks that it wrote its records both to the
# console and into a log file of the folder it configured.
run_example() {
    local label=$1 binary=$2 module=$3
    local run_dir=$work/run-$label
    mkdir -p "$run_dir"
    echo "running $label"
    if ! (cd "$run_dir" && "$binary" logs > console.txt 2> stderr.txt); then
        cat "$run_dir/console.txt" "$run_dir/stderr.txt"
        fail "$label exited with an error"
        return
    fi
    if ! grep -q "^\[$module\]\[V$version I " "$run_dir/console.txt"; then
        cat "$run_dir/console.txt"
        fail "$label printed no log line of module $module"
    fi
    local log_files=("$run_dir"/logs/QelLog*.log)
    if [[ ! -f "${log_files[0]}" ]]; then
        fail "$label wrote no log file into its folder"
    elif ! grep -q "^\[$module\]\[V$version E .*\]Errno:0x80300206" "${log_files[@]}"; then
        cat "${log_files[@]}"
        fail "$label's log file lacks its records"
    fi
}

section "Building the examples with CMake find_package"
for lang in c cpp; do
    example_build=$work/cmake-$lang
    compiler=-DCMAKE_C_COMPILER=$CC
    [[ $lang == cpp ]] && compiler=-DCMAKE_CXX_COMPILER=$CXX
    if cmake -S "$source_dir/examples/$lang" -B "$example_build" "${generator[@]}" \
             -DCMAKE_PREFIX_PATH="$prefix" "$compiler" > "$work/cmake-$lang.log" 2>&1 \
       && cmake --build "$example_build" >> "$work/cmake-$lang.log" 2>&1; then
        binary=$example_build/qel_example_$lang
        # The build tree finds the library through its RPATH: it must be the installed one.
        libraries=$(ldd "$binary")
        if ! grep -q "libqel.so.$major => $libdir/" <<< "$libraries"; then
            echo "$libraries"
            fail "cmake-$lang does not load libqel from the prefix"
        fi
        run_example "cmake-$lang" "$binary" "example-$lang"
    else
        cat "$work/cmake-$lang.log"
        fail "the $lang example does not build with find_package"
    fi
done

section "Building the examples with pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
pc_version=$(pkg-config --modversion qel)
[[ "$pc_version" == "$version" ]] || fail "pkg-config reports version $pc_version"
read -r -a qel_flags <<< "$(pkg-config --cflags --libs qel)"
echo "pkg-config --cflags --libs qel: ${qel_flags[*]}"
# The C example starts a thread of its own and takes the threads library from qel.pc alone.
[[ " $(pkg-config --libs qel) " == *" -pthread "* ]] || fail "qel.pc does not link the threads library"
if "$CC" -std=c11 -Wall -Wextra -pedantic -Werror "$source_dir/examples/c/main.c" "${qel_flags[@]}" \
         -o "$work/pkgconfig-c"; then
    LD_LIBRARY_PATH=$libdir run_example pkgconfig-c "$work/pkgconfig-c" example-c
else
    fail "the C example does not build with pkg-config"
fi
if "$CXX" -std=c++17 -Wall -Wextra -pedantic -Werror "$source_dir/examples/cpp/main.cpp" \
          "${qel_flags[@]}" -o "$work/pkgconfig-cpp"; then
    LD_LIBRARY_PATH=$libdir run_example pkgconfig-cpp "$work/pkgconfig-cpp" example-cpp
else
    fail "the C++ example does not build with pkg-config"
fi

# qel.pc finds the prefix from where it lies, so a moved tree still builds.
moved=$work/moved
mv "$prefix" "$moved"
export PKG_CONFIG_PATH=$moved/${libdir#"$prefix"/}/pkgconfig
moved_include=$(pkg-config --variable=includedir qel)
[[ "$(cd "$moved_include" 2>/dev/null && pwd -P)" == "$(cd "$moved/include" && pwd -P)" ]] \
    || fail "qel.pc does not follow a moved prefix (includedir $moved_include)"
# The installed tool finds the library through its relative run path, with no environment.
if [[ -x "$moved/bin/qellog" ]]; then
    env -i "$moved/bin/qellog" --version || fail "bin/qellog does not run from a moved prefix"
fi

# ---- Result --------------------------------------------------------------------------------
if [[ ${#failures[@]} -gt 0 ]]; then
    printf '\n%d consumer check(s) failed:\n' "${#failures[@]}"
    printf '  %s\n' "${failures[@]}"
    exit 1
fi
printf '\nAll consumer checks passed\n'
