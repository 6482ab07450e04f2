#!/usr/bin/env bash
# The log format of packaging/lnav/qel.json, checked headless: qellog writes records of every
# level, some of them split between files by a small size limit, and the format must read the
# `qellog cat` stream as exactly those records, whole, with the right count per level. Skips with a
# message when the lnav package cannot be installed.
# Usage: .ci/lnav.sh [BUILD_DIR]   (default build; qellog is built there)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${1:-build}

if ! command -v lnav >/dev/null 2>&1 && ! bash .ci/install-missing.sh lnav; then
    echo "lnav check skipped: the lnav package cannot be installed here"
    exit 0
fi
bash .ci/install-missing.sh pkg-config libre2-dev zlib1g-dev  # what qellog builds with
cmake --build "$build" -j2 --target qellog
qellog=$root/$build/tools/qellog/qellog

work=$(mktemp -d /tmp/qel-lnav.XXXXXX)
trap 'rm -rf "$work"' EXIT
export HOME=$work/home  # lnav keeps its formats and state below HOME
mkdir -p "$HOME"

# 300-byte lines in files of 1 KiB: most records are split between two files.
line=$(printf 'x%.0s' $(seq 1 300))
declare -A expected=([debug]=3 [info]=5 [warning]=2 [error]=4)
for level in V I W E; do
    case $level in V) name=debug ;; I) name=info ;; W) name=warning ;; E) name=error ;; esac
    for _ in $(seq 1 "${expected[$name]}"); do echo "$level $line"; done |
        "$qellog" --no-console --folder "$work/logs" --max-size 1K --threshold V --level $level
done
echo "$(ls "$work/logs" | wc -l) log files"

lnav -i "$root/packaging/lnav/qel.json"
counts=$("$qellog" cat "$work/logs" |
    lnav -n -c ';SELECT log_level, count(*) FROM qel_log WHERE length(log_body) > 300 GROUP BY log_level')
echo "$counts"
failed=0
for name in debug info warning error; do
    got=$(awk -v level="$name" '$1 == level { print $2 }' <<<"$counts")
    if [ "${got:-0}" != "${expected[$name]}" ]; then
        echo "lnav check FAILED: $name records: expected ${expected[$name]}, got ${got:-0}"
        failed=1
    fi
done
[ $failed -eq 0 ] && echo "lnav check passed: the qel format reads every record of the qellog cat stream"
exit $failed
