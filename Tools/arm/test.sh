#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds the libraries for 64-bit Arm and runs their tests in an emulator. Libraries for Arm are unpacked below build/arm, not
# installed: the packages of this machine stay as they are.
set -eu
cd "$(dirname "$0")/../.."
Tools/install_packages.sh g++-aarch64-linux-gnu qemu-user-static cmake ninja-build pkg-config binutils

folder=$PWD/build/arm
if [ ! -e "$folder/root/complete" ]; then
    echo "arm: fetch libraries"
    mkdir -p "$folder/root" "$folder/lists/partial" "$folder/packages"
    apt_get() {
        apt-get -qq -o APT::Architecture=arm64 -o APT::Architectures=arm64 -o APT::Sandbox::User=root \
            -o Dir::State::status=/dev/null -o Dir::State::lists="$folder/lists" \
            -o Dir::Cache::pkgcache= -o Dir::Cache::srcpkgcache= "$@"
    }
    apt_get update
    (
        cd "$folder/packages"
        apt_get download libusb-1.0-0-dev libusb-1.0-0 libudev-dev libudev1 libhwy-dev libhwy1 libpng-dev libpng16-16 \
            zlib1g-dev zlib1g libgtest-dev
        for package in *.deb; do dpkg-deb -x "$package" "$folder/root"; done
    )
    touch "$folder/root/complete"
fi

echo "arm: build"
{ cmake --preset arm && cmake --build --preset arm; } >"$folder/build.log" 2>&1 || {
    grep -E -A10 'error|FAILED' "$folder/build.log" | head -n 60 >&2
    exit 1
}
echo "arm: test"
ctest --preset arm -j2 --quiet --output-log "$folder/ctest.log" || {
    grep -E -A40 'Failure|ERROR' "$folder/ctest.log" | head -n 120 >&2
    tail -n 15 "$folder/ctest.log"
    exit 1
}
tail -n 4 "$folder/ctest.log"
