#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The library exports exactly the names of the list: exported_symbols.sh LIBRARY LIST
set -eu
exported=$(nm -D --defined-only "$1" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort)
listed=$(sed -n 's/^ *\([A-Za-z_][A-Za-z_0-9]*\);$/\1/p' "$2" | sort)
[ "$exported" = "$listed" ] && exit 0
echo "only in the library:"; echo "$exported" | grep -vxF "$listed" || true
echo "only in the list:"; echo "$listed" | grep -vxF "$exported" || true
exit 1
