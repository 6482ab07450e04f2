#!/usr/bin/env bash
# Installs those of the given Debian packages that are not installed yet, after refreshing the
# package lists; does nothing when all are there.
#   bash .ci/install-missing.sh PACKAGE...
set -euo pipefail
missing=()
for package in "$@"; do
    dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
    export DEBIAN_FRONTEND=noninteractive
    apt-get update
    apt-get install -y --no-install-recommends "${missing[@]}"
fi
