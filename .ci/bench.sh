#!/usr/bin/env bash
# Builds the benchmarks and runs each case once, briefly, so that they keep building and
# running. It does not judge speed: the numbers of a shared machine mean nothing here; the
# comparison is bench/compare.sh's.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(libbenchmark-dev libspdlog-dev libgoogle-glog-dev liblog4cplus-dev)
bash .ci/install-missing.sh "${packages[@]}"

cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DQEL_BUILD_BENCH=ON \
    -DQEL_BUILD_TESTS=OFF -DQEL_BUILD_TOOLS=OFF
cmake --build build-bench -j2 --target qel_bench
./build-bench/bench/qel_bench --benchmark_min_time=0.01
