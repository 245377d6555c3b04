#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# What the tests reach of Source/: a line for each file that is not reached whole, the lines that are left, and the totals.
# Fails below the goals. Clang counts by source: a template counts once, however often it is instantiated, and of branches
# both outcomes of each condition. The ways of exceptions are no branches.
set -euo pipefail
cd "$(dirname "$0")/.."
line_goal=95 branch_goal=85
Tools/install_test_packages.sh llvm-14

build=$PWD/build/coverage
mkdir -p "$build"
cmake --preset coverage >"$build/build.log" 2>&1 && cmake --build --preset coverage >>"$build/build.log" 2>&1 || {
    grep -E -A10 'error|FAILED' "$build/build.log" | head -n 60 >&2
    exit 1
}
rm -rf "$build/counts"
LLVM_PROFILE_FILE="$build/counts/%p-%m.profraw" ctest --preset coverage -j2 --quiet --output-log "$build/ctest.log" || {
    tail -n 15 "$build/ctest.log"
    exit 1
}
llvm-profdata-14 merge --sparse "$build"/counts/*.profraw -o "$build/counts.profdata"
programs=("$build"/Tests/*_test "$build"/Tests/mocked_kernel/*_test "$build"/Tests/soak "$build"/Tests/fuzz/fuzz_*)
objects=("${programs[0]}")
for program in "${programs[@]:1}"; do objects+=(-object "$program"); done
# Functions of the same name in several programs are warned of; ours stand in one archive and are the same in all.
report=(-instr-profile "$build/counts.profdata" "${objects[@]}" "$PWD/Source")
llvm-cov-14 export "${report[@]}" 2>"$build/warnings.log" >"$build/coverage.json"

jq -r --arg root "$PWD/" '
    def padded(width): . + " " * (width - length);
    def row: "\(.[0] | padded(44))" + (.[1:] | map(tostring | " " * (9 - length) + .) | add);
    def share: if .count == 0 then "-" else "\(.covered * 1000 / .count | floor | . / 10)%" end;
    def figures(name): [name, (.lines | share, .count - .covered), (.branches | share, .count - .covered)] | row;
    def name: .filename | ltrimstr($root);
    .data[0] | (["file", "lines", "left", "branches", "left"] | row),
    (.files[] | select(.summary | .lines.covered < .lines.count or .branches.covered < .branches.count) |
        name as $name | .summary | figures($name)),
    (.totals | figures("all of Source"))' "$build/coverage.json"
echo "lines that are left:"
llvm-cov-14 show -show-instantiations=false "${report[@]}" 2>/dev/null |
    awk -F'|' -v root="$PWD/" '
        function finish() { if (left != "") print file ":" left; left = "" }
        /^\// { finish(); file = substr($1, length(root) + 1); sub(/:$/, "", file) }
        $2 ~ /^ *0$/ { number = $1; gsub(/ /, "", number); left = left " " number }
        END { finish() }'
jq -e --argjson lines $line_goal --argjson branches $branch_goal \
    '.data[0].totals | .lines.percent >= $lines and .branches.percent >= $branches' "$build/coverage.json" >/dev/null || {
    echo "the goals are $line_goal % of lines and $branch_goal % of branches" >&2
    exit 1
}
