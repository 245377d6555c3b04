#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Measures all conversions on this machine, and what other libraries offer instead, in some minutes. Arguments go to the
# program: `edge/8to24` measures the conversions of that name and their peers, in seconds.
set -eu
cd "$(dirname "$0")/.."
Tools/install_packages.sh g++ cmake ninja-build pkg-config libusb-1.0-0-dev libhwy-dev libpng-dev zlib1g-dev \
    libopencv-core-dev libopencv-imgproc-dev libdc1394-dev >&2
cmake --preset bench >&2
cmake --build --preset bench --target conversion_bench >&2
exec build/bench/Bench/conversion_bench "$@"
