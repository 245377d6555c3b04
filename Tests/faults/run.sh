#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Every fault in every scenario; an argument is the beginning of the names of some cases.
set -eu
cd "$(dirname "$0")/../.."
Tools/install_packages.sh g++ cmake ninja-build pkg-config libusb-1.0-0-dev libhwy-dev libpng-dev libtiff-dev zlib1g-dev \
    libcli11-dev nlohmann-json3-dev libgtest-dev libumockdev-dev umockdev
{ cmake --preset asan && cmake --build --preset asan --target fault_sweep; } >/dev/null
exec build/asan/Tests/faults/fault_sweep "$@"
