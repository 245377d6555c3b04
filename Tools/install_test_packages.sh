#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Installs what is missing of the Debian packages that it takes to build everything and to run its tests, and those named.
exec "$(dirname "$0")/install_packages.sh" g++ clang-14 libclang-rt-14-dev clang-format-14 cmake ninja-build pkg-config \
    binutils git jq libusb-1.0-0-dev libhwy-dev libpng-dev libtiff-dev zlib1g-dev libcli11-dev nlohmann-json3-dev \
    libgtest-dev libumockdev-dev umockdev "$@"
