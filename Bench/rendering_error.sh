#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Measures how well each demosaic method restores photographs that Debian ships. The packages are unpacked, not installed:
# one of them brings fifty others. The landscapes are JPEG files; half their size is free of what compression did to them.
set -eu
cd "$(dirname "$0")/.."
Tools/install_packages.sh g++ cmake ninja-build pkg-config libusb-1.0-0-dev libhwy-dev libpng-dev zlib1g-dev \
    libopencv-core-dev libopencv-imgproc-dev libdc1394-dev netpbm >&2
cmake --preset bench >&2
cmake --build --preset bench --target rendering_error >&2

folder=$PWD/build/photographs
if [ ! -e "$folder/complete" ]; then
    mkdir -p "$folder"
    (
        cd "$folder"
        apt-get download python3-skimage mate-backgrounds >&2
        for package in *.deb; do dpkg-deb -x "$package" .; done
        for name in astronaut coffee motorcycle_left; do
            pngtopnm -quiet usr/lib/python3/dist-packages/skimage/data/$name.png >$name.ppm
        done
        for name in Dune GreenMeadow Storm; do # averages of 2 x 2 pixels; without -linear it would undo a gamma first
            jpegtopnm -quiet usr/share/backgrounds/mate/nature/$name.jpg | pamscale -linear -reduce 2 >$name.ppm
        done
        touch complete
    )
fi
cd "$folder"
../bench/Bench/rendering_error astronaut.ppm coffee.ppm motorcycle_left.ppm Dune.ppm GreenMeadow.ppm Storm.ppm
