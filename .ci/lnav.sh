#!/usr/bin/env bash
# The lnav formats of packaging/lnav/, checked headless (lnav -n):
# - qel_json.json on the JSON-lines stream of `qellog cat --json`, piped and from a file: every
#   record comes out once, with the date, time and millisecond of its `ts`, its level, module,
#   thread and whole text; on a folder that qellog writes (records of every level, many split
#   between files by a small size limit) and on hand-made files of a past day that cross
#   midnight, whose dates and milliseconds are known here;
# - qel.json (the raw lines, no date) on the `qellog cat` stream: the right count per level,
#   every record whole.
# Skips with a message when the lnav package cannot be installed.
# Usage: .ci/lnav.sh [BUILD_DIR]   (default build; qellog is built there)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${1:-build}

bash .ci/install-missing.sh python3  # compares lnav's records with qellog's
if ! command -v lnav >/dev/null 2>&1 && ! bash .ci/install-missing.sh lnav; then
    echo "lnav check skipped: the lnav package cannot be installed here"
    exit 0
fi
bash .ci/install-missing.sh  # what the build needs
cmake --build "$build" -j2 --target qellog
qellog=$root/$build/tools/qellog/qellog

work=$(mktemp -d /tmp/qel-lnav.XXXXXX)
trap 'rm -rf "$work"' EXIT
export HOME=$work/home  # lnav keeps its formats and state below HOME
mkdir -p "$HOME"
lnav -i "$root/packaging/lnav/qel.json"
lnav -i "$root/packaging/lnav/qel_json.json"
# A zone with an offset, so that a time shifted by the offset cannot pass for the right one.
export TZ=Europe/Berlin

# 300-byte texts, each with its own number, in files of 1 KiB: most records are split between
# two files.
line=$(printf 'x%.0s' $(seq 1 300))
declare -A expected=([debug]=3 [info]=5 [warning]=2 [error]=4)
for level in V I W E; do
    case $level in V) name=debug ;; I) name=info ;; W) name=warning ;; E) name=error ;; esac
    for i in $(seq 1 "${expected[$name]}"); do echo "$level$i $line"; done |
        "$qellog" --no-console --folder "$work/logs" --max-size 1K --threshold V --level $level
done
echo "$(ls "$work/logs" | wc -l) log files"

# Hand-made files of 28 February 2024: the records after midnight belong to the 29th, and the
# milliseconds are written unpadded as the writer writes them.
mkdir "$work/past"
printf '%s\n\n' '[cam][V1.8.63 I 23:59:58:5 10]before midnight' \
    '[cam][V1.8.63 W 23:59:59:999 10]last millisecond' \
    $'[net][V1.8.63 E 00:00:00:7 11]after midnight\nsecond line' \
    '[net][V1.8.63 V 00:00:01:50 11]fifty' > "$work/past/QelLog2024-02-28-23-59-58-1.log"
printf '%s\n\n' '[cam][V1.8.63 I 00:10:00:123 10]next file' \
    > "$work/past/QelLog2024-02-29-00-10-00-100.log"
cat > "$work/past.expected" <<'LIST'
2024-02-28 23:59:58.005 info cam 10 before midnight
2024-02-28 23:59:59.999 warning cam 10 last millisecond
2024-02-29 00:00:00.007 error net 11 after midnight\nsecond line
2024-02-29 00:00:01.050 debug net 11 fifty
2024-02-29 00:10:00.123 info cam 10 next file
LIST

query=';SELECT log_time, log_level, module, tid, log_body FROM qel_json'
# The records as lnav shows them, one per line: time, level, module, thread, text.
lnav_records() {
    python3 -c '
import json, sys
for r in json.load(sys.stdin):
    print(r["log_time"], r["log_level"], r["module"], r["tid"], r["log_body"].replace("\n", "\\n"))'
}
# The same, from the records of qellog cat --json: what lnav should show.
qellog_records() {
    python3 -c '
import json, sys
levels = {"V": "debug", "I": "info", "W": "warning", "E": "error"}
for line in sys.stdin:
    r = json.loads(line)
    print(r["ts"][:23].replace("T", " "), levels[r["level"]], r["module"], r["tid"],
          r["text"].replace("\n", "\\n"))'
}
failed=0
compare() {  # NAME EXPECTED GOT
    if diff -u "$2" "$3" > "$work/diff"; then
        echo "lnav JSON check: $1: $(wc -l < "$2") records, each with its date and millisecond"
    else
        echo "lnav JSON check FAILED: $1 (- expected, + lnav):"
        cut -c1-160 "$work/diff" | head -20
        failed=1
    fi
}
for folder in logs past; do
    "$qellog" cat --json "$work/$folder" > "$work/$folder.jsonl"
    [ "$folder" = past ] || qellog_records < "$work/$folder.jsonl" > "$work/$folder.expected"
    lnav -n -c "$query" -c ':write-json-to -' < "$work/$folder.jsonl" | lnav_records \
        > "$work/$folder.piped"
    compare "$folder, piped" "$work/$folder.expected" "$work/$folder.piped"
    lnav -n -c "$query" -c ':write-json-to -' "$work/$folder.jsonl" | lnav_records \
        > "$work/$folder.file"
    compare "$folder, from a file" "$work/$folder.expected" "$work/$folder.file"
done
records=$(wc -l < "$work/logs.expected")
if [ "$records" -ne 14 ]; then
    echo "lnav JSON check FAILED: qellog cat --json gave $records of 14 records"
    failed=1
fi

counts=$("$qellog" cat "$work/logs" |
    lnav -n -c ';SELECT log_level, count(*) FROM qel_log WHERE length(log_body) > 300 GROUP BY log_level')
echo "$counts"
for name in debug info warning error; do
    got=$(awk -v level="$name" '$1 == level { print $2 }' <<<"$counts")
    if [ "${got:-0}" != "${expected[$name]}" ]; then
        echo "lnav check FAILED: $name records: expected ${expected[$name]}, got ${got:-0}"
        failed=1
    fi
done
[ $failed -eq 0 ] && echo "lnav check passed: both formats read every record of the stream"
exit $failed
