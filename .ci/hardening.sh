#!/usr/bin/env bash
# Hardening checks that ctest does not run: the fuzzers. Each is built with clang 14 under
# libFuzzer, AddressSanitizer and UndefinedBehaviorSanitizer against a library built with the
# same sanitizers, and runs for FUZZ_SECONDS (60) from its seed corpus in fuzz/corpus/<name>/.
# A crash, a leak, a sanitizer report or a time-out fails the script. New inputs found go to
# build-fuzz/corpus/<name>/, so the committed corpus stays as it is. (The fault, fork,
# crash-safety and reduced soak tests run in ctest; scripts/soak.sh runs the full soak.)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${FUZZ_SECONDS:-60}
build=${FUZZ_BUILD_DIR:-build-fuzz}
# The fuzzers change into scratch directories of their own: every path they get is absolute.
root=$PWD
fuzzers=(write config error_code)

if ! command -v clang++-14 >/dev/null 2>&1 || ! dpkg -s libclang-rt-14-dev >/dev/null 2>&1; then
    export DEBIAN_FRONTEND=noninteractive
    apt-get update
    apt-get install -y --no-install-recommends clang-14 libclang-rt-14-dev
fi

sanitizers="-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
    -DQEL_BUILD_TESTS=OFF -DQEL_BUILD_TOOLS=OFF \
    -DCMAKE_C_FLAGS="$sanitizers -fsanitize=fuzzer-no-link -O1" \
    -DCMAKE_CXX_FLAGS="$sanitizers -fsanitize=fuzzer-no-link -O1" \
    -DCMAKE_SHARED_LINKER_FLAGS="$sanitizers"
cmake --build "$build" -j2 --target qel

for name in "${fuzzers[@]}"; do
    clang++-14 -std=c++17 -g -O1 $sanitizers -fsanitize=fuzzer -Iinclude \
        "fuzz/${name}_fuzzer.cpp" -o "$build/${name}_fuzzer" \
        -L"$build" -lqel -Wl,-rpath,"$PWD/$build"
done

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
status=0
for name in "${fuzzers[@]}"; do
    printf '\n---- fuzzing %s for %s s ----\n' "$name" "$seconds"
    mkdir -p "$build/corpus/$name" "$build/artifacts"
    if ! "$root/$build/${name}_fuzzer" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 \
            -print_final_stats=1 -artifact_prefix="$root/$build/artifacts/$name-" \
            "$root/$build/corpus/$name" "$root/fuzz/corpus/$name"; then
        echo "fuzzer $name failed; the input is in $build/artifacts/" >&2
        status=1
    fi
done
# The fuzzers log into scratch folders of their own under /tmp; they are not needed after.
rm -rf /tmp/qelfz-* 2>/dev/null || true
exit $status
