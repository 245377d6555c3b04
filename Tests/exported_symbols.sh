#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The library exports exactly the names of the list: exported_symbols.sh LIBRARY LIST
# Within extern "C++", a name of the list stands for all that begin so (its * is for the parameters).
set -eu
names=$(nm -DC --defined-only "$1" | awk '$2 != "A"' | cut -d' ' -f3- | sed 's/@@.*//' | sort -u)
patterns=$(sed -n 's/^ *\([A-Za-z_:][A-Za-z_0-9:]*\*\{0,1\}\);$/\1/p' "$2")
status=0
matched=""
while read -r name; do
  found=""
  for pattern in $(set -f; echo $patterns); do
    case $name in $pattern) found=$pattern; matched="$matched $pattern "; break ;; esac
  done
  [ -n "$found" ] || { echo "only in the library: $name"; status=1; }
done <<LIST
$names
LIST
set -f
for pattern in $patterns; do
  case $matched in *" $pattern "*) ;; *) echo "only in the list: $pattern"; status=1 ;; esac
done
exit $status
