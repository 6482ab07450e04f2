#!/usr/bin/env bash
# The soak test at full size: 8 threads write 2,500,000 numbered records with a 1 MiB file
# limit (ctest runs it at a reduced size). Needs about 300 MB of free space under /tmp.
#   scripts/soak.sh [build-dir]   (default build-hard; built here if missing)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-hard}
if [ ! -x "$build/tests/test_hardening" ]; then
    cmake -S . -B "$build" -G Ninja
    cmake --build "$build" -j2 --target test_hardening
fi
QEL_SOAK_RECORDS=${QEL_SOAK_RECORDS:-2500000} \
    "$build/tests/test_hardening" --gtest_filter='SoakTest.*'
