#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Builds the fuzz targets and lets each look for inputs: run.sh [SECONDS | runs=EXECUTIONS] [TARGET...], 60 seconds and all
# targets unless told otherwise. Prints a line a target; fails when one made a find, and says where it is. What is learnt
# stays in build/fuzz/corpus.
set -euo pipefail
cd "$(dirname "$0")/../.."
limit=-max_total_time=${1:-60}
[[ ${1-} != runs=* ]] || limit=-$1
targets=("${@:2}")

Tools/install_test_packages.sh
mkdir -p build
cmake --preset fuzz >build/fuzz.log 2>&1 && cmake --build --preset fuzz >>build/fuzz.log 2>&1 || {
    grep -E -A10 'error|FAILED' build/fuzz.log | head -n 60 >&2
    exit 1
}
cd build/fuzz
if [[ ${#targets[@]} = 0 ]]; then
    for program in Tests/fuzz/fuzz_*; do targets+=("${program#*/fuzz_}"); done
fi

# No stacks of allocations, and freed memory is kept for some hundred inputs, which takes less time. A find says more when
# it is run again without these.
export ASAN_OPTIONS=malloc_context_size=0:quarantine_size_mb=16${ASAN_OPTIONS:+:$ASAN_OPTIONS}
mkdir -p finds
failed=0
printf '%-16s %12s %8s %10s %6s\n' target executions exec/s 'new units' finds
for target in "${targets[@]}"; do
    mkdir -p "corpus/$target"
    before=$(find finds -name "$target-*" | wc -l)
    options=("$limit" -print_final_stats=1 -timeout=120 -report_slow_units=120 "-artifact_prefix=finds/$target-")
    case $target in
        arguments) options+=(-max_len=512) ;; # the parser compares each word with all commands
        conversion) options+=(-max_len=2048 -entropic=0) ;; # weighing its many features takes longer than a conversion
        fpga_image) options+=(-max_len=4096) ;; # a whole image of the smallest FPGA has 3016
        *) options+=(-max_len=2048) ;;
    esac
    dictionary=../../Tests/fuzz/dictionaries/$target
    [[ ! -f $dictionary ]] || options+=(-dict="$dictionary")
    "Tests/fuzz/fuzz_$target" "${options[@]}" "corpus/$target" "../../Tests/fuzz/seeds/$target" >"$target.log" 2>&1 || failed=1
    finds=$(($(find finds -name "$target-*" | wc -l) - before))
    stat() { sed -n "s/^stat::$1: *//p" "$target.log"; }
    printf '%-16s %12s %8s %10s %6s\n' "$target" "$(stat number_of_executed_units)" "$(stat average_exec_per_sec)" \
        "$(stat new_units_added)" "$finds"
    grep -E '^(SUMMARY|not true|artifact_prefix)' "$target.log" | sed "s|Test unit written to |&$PWD/|" || true
done
exit $failed
