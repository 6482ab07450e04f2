#!/usr/bin/env bash
# Compares the binary interface of a built libqel.so with the baseline kept in the repository,
# abi/libqel.so.1.abi, made by libabigail's abidw from a build with debug information.
#
#   check-abi.sh LIBRARY            exits 1 and prints abidiff's report on any change that can
#                                   break a program built against the baseline
#   check-abi.sh --update LIBRARY   rewrites the baseline from the library (see abi/README.md)
#
# Added functions and variables are compatible and pass; a removed or changed function, a
# changed type (a member added to an exported class, a new virtual function, another layout of
# a record passed by value) fails. The library must be built with debug information (-g, as the
# default RelWithDebInfo build is): without it abidiff could only compare symbol names.
set -euo pipefail

baseline="$(cd "$(dirname "$0")" && pwd)/libqel.so.1.abi"
update=0
if [[ "${1:-}" == "--update" ]]; then
    update=1
    shift
fi
if [[ $# -ne 1 ]]; then
    echo "usage: $0 [--update] LIBRARY" >&2
    exit 2
fi
library=$1

if ! command -v abidiff >/dev/null 2>&1; then
    echo "abidw and abidiff are missing: install the Debian package abigail-tools" >&2
    exit 2
fi
if ! readelf -S --wide "$library" | grep -q '\.debug_info'; then
    echo "$library has no debug information: build it with -g (RelWithDebInfo or Debug)" >&2
    exit 2
fi

if [[ $update -eq 1 ]]; then
    # No build paths in the baseline: it reads the same from whatever checkout made it.
    abidw --no-corpus-path --no-comp-dir-path --short-locs --drop-undefined-syms \
          --type-id-style hash --out-file "$baseline" "$library"
    echo "wrote the binary interface of $library to $baseline"
    exit 0
fi

# abidiff's status is a bit set: 1 error, 2 usage, 4 the interface changed, 8 it changed
# incompatibly. Added symbols alone are not reported (--no-added-syms) and leave it 0.
status=0
report=$(abidiff --no-added-syms --no-show-locs "$baseline" "$library") || status=$?
if [[ $status -ne 0 ]]; then
    echo "$report"
    echo
    if (( status & 3 )); then
        echo "abidiff failed (status $status)"
    else
        echo "The binary interface of $library differs from $baseline (abidiff status $status)."
        echo "Programs built against the baseline may break. Undo the change, or, if it is meant,"
        echo "give the library a new SONAME and update the baseline (abi/README.md says how)."
    fi
    exit 1
fi
echo "the binary interface of $library matches $baseline"
