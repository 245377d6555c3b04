#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Measures all conversions on this machine, and what other libraries offer instead, in three rounds, some minutes in all. Prints
# the fastest of each case in megapixels a second. Arguments go to the program.
set -eu
cd "$(dirname "$0")/.."
Tools/install_packages.sh g++ cmake ninja-build pkg-config libusb-1.0-0-dev libhwy-dev libbenchmark-dev jq \
    libopencv-core-dev libopencv-imgproc-dev libdc1394-dev >&2
cmake --preset bench >&2
cmake --build --preset bench --target conversion_bench >&2

rounds=$(mktemp)
trap 'rm -f "$rounds"' EXIT
for _ in 1 2 3; do
    build/bench/Bench/conversion_bench --benchmark_min_time=0.1 --benchmark_format=json "$@" >>"$rounds"
done
jq -rs '
    [("2592x1944", "1280x1024") as $size | ("plain", "matrix", "gamma", "both") as $colours | "\($size) \($colours)"]
        as $columns |
    def row: "| \(join(" | ")) |";
    reduce .[].benchmarks[] as $run ({};
        ($run.name | split("/")) as [$method, $depths, $colours, $size] |
        .["\($method) \($depths)"]["\($size) \($colours)"] |= ([., ($run.items_per_second / 1e6 | round)] | max)) |
    (["MP/s"] + $columns | row), (["---"] + ($columns | map("---:")) | row),
    (to_entries[] | [.key] + [.value[$columns[]]] | row)' "$rounds"
