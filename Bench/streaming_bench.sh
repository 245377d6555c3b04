#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Measures what receiving and converting frames at the bus's full rate costs on this machine, in less than a minute.
set -eu
cd "$(dirname "$0")/.."
Tools/install_packages.sh g++ cmake ninja-build pkg-config libusb-1.0-0-dev libhwy-dev libpng-dev zlib1g-dev >&2
cmake --preset bench >&2
cmake --build --preset bench --target streaming_bench >&2
exec build/bench/Bench/streaming_bench "$@"
