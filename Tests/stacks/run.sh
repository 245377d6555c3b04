#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# What needs a real kernel, in an emulated machine; where its packages cannot be had, one line says so.
set -eu
cd "$(dirname "$0")/../.."
Tools/install_test_packages.sh
Tools/install_packages.sh qemu-system-x86 cpio xz-utils libusbredirparser-dev >/dev/null 2>&1 || {
    echo "kernel: skipped, the packages of the emulated machine cannot be had"
    exit 0
}
cmake --preset kernel >/dev/null
cmake --build --preset kernel >build/kernel/build.log 2>&1 || {
    grep -E -A10 'error|FAILED' build/kernel/build.log | head -n 60 >&2
    exit 1
}
exec Tests/stacks/kernel_test.sh build/kernel
