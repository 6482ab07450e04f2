#!/usr/bin/env bash
# Installs those of the given Debian packages that are not installed yet, after refreshing the
# package lists; does nothing when all are there. Without packages named, installs what the
# build and the tests need (README's commands start with this).
#   bash .ci/install-missing.sh [PACKAGE...]
set -euo pipefail
if [ $# -eq 0 ]; then
    # qellog matches patterns with RE2 and reads archives with zlib, both found with pkg-config;
    # the local-time test compares against zone files with daylight saving time (tzdata).
    set -- cmake ninja-build g++ pkg-config libre2-dev zlib1g-dev libgtest-dev tzdata
fi
missing=()
for package in "$@"; do
    dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
    export DEBIAN_FRONTEND=noninteractive
    apt-get update
    apt-get install -y --no-install-recommends "${missing[@]}"
fi
