#!/usr/bin/env bash
# Builds the benchmarks in Release, runs every case (the library, the peer libraries and the
# floors, 1 and 4 threads each) and prints one table: records per second per case, and the
# library's ratio against each peer and each floor, followed by the targets.
#
# Usage: bench/compare.sh [build-dir] [benchmark flags...]
#   MIN_TIME=seconds per case (default 1).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build-bench}
[ $# -gt 0 ] && shift

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQEL_BUILD_BENCH=ON \
    -DQEL_BUILD_TESTS=OFF -DQEL_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" -j2 --target qel_bench >/dev/null

results=$(mktemp)
trap 'rm -f "$results"' EXIT
# The run's own report goes to standard error; the table is the only standard output.
"$build/bench/qel_bench" --benchmark_min_time="${MIN_TIME:-1}" \
    --benchmark_out="$results" --benchmark_out_format=json "$@" >&2
python3 "$root/bench/table.py" "$results"
