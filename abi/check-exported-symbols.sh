#!/usr/bin/env bash
# Compares the symbols that a built libqel.so exports with the list kept in the repository.
#
#   check-exported-symbols.sh LIBRARY EXPECTED_LIST            exits 1 and prints the diff on a mismatch
#   check-exported-symbols.sh --update LIBRARY EXPECTED_LIST   rewrites the list from the library
#
# The list holds the demangled names of the dynamic symbols the library defines, one a line,
# sorted bytewise and without repeats. Update it only on purpose (see abi/README.md).
set -euo pipefail

update=0
if [[ "${1:-}" == "--update" ]]; then
    update=1
    shift
fi
if [[ $# -ne 2 ]]; then
    echo "usage: $0 [--update] LIBRARY EXPECTED_LIST" >&2
    exit 2
fi
library=$1
expected=$2

export LC_ALL=C
# nm prints "ADDRESS TYPE NAME"; a demangled name may hold spaces, so only the first two
# fields are cut away.
actual=$(nm -D --defined-only -C "$library" | sed -E 's/^[0-9a-fA-F]* *[A-Za-z] //' | sort -u)
if [[ -z "$actual" ]]; then
    echo "no exported symbols found in $library" >&2
    exit 1
fi

if [[ $update -eq 1 ]]; then
    printf '%s\n' "$actual" > "$expected"
    echo "wrote $(wc -l < "$expected") symbols to $expected"
    exit 0
fi

if ! diff_output=$(diff -u --label "expected ($expected)" --label "exported by $library" \
                       "$expected" <(printf '%s\n' "$actual")); then
    echo "The exported symbols of $library differ from $expected:"
    echo "$diff_output"
    echo
    echo "'-' lines are no longer exported, '+' lines are new. If the change is meant, update"
    echo "the list (abi/README.md says how) and commit it with the change."
    exit 1
fi
echo "$(printf '%s\n' "$actual" | wc -l) exported symbols match $expected"
