#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Installs those of the named Debian packages that are missing: install_packages.sh PACKAGE...
set -eu
missing=
for package in "$@"; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0
echo "installing$missing"
as_root=
if [ "$(id -u)" != 0 ]; then
    command -v sudo >/dev/null || { echo "error: run as root, or install these first:$missing" >&2; exit 1; }
    as_root=sudo
fi
log=$(mktemp)
# shellcheck disable=SC2086 # a list of words
if ! { $as_root apt-get update && $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing; } \
    >"$log" 2>&1; then
    tail -n 20 "$log" >&2
    echo "error: these packages could not be installed:$missing" >&2
    exit 1
fi
rm -f "$log"
