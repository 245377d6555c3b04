#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The library on a real Linux kernel, in an emulated machine: kernel_test.sh BUILD
#
# BUILD has been built by the preset "kernel". What the machine runs - kernel, device manager, shell - is unpacked from the
# newest Debian packages into BUILD/guest, and nothing of it is installed. Where they cannot be had, one line says so, and
# all is well. guest_init.sh says what is tested there.
set -eu
cd "$(dirname "$0")/../.."
build=$(realpath "$1")
cache=$build/guest
root=$cache/root

unpack() { # PACKAGE: into a folder of its name, unless it is there
    [ -d "$cache/$1" ] || (
        mkdir -p "$cache/packages"
        cd "$cache/packages"
        apt-get download "$1" >/dev/null 2>&1 || { echo "kernel: skipped, package $1 cannot be had"; exit 1; }
        dpkg -x "$1"_*.deb "$cache/$1.part"
        mv "$cache/$1.part" "$cache/$1"
        rm -f "$1"_*.deb
    )
}

kernel=$(apt-cache depends linux-image-amd64 2>/dev/null | sed -n 's/.*Depends: \(linux-image-[0-9].*-amd64\)$/\1/p' | head -n 1)
[ -n "$kernel" ] || { echo "kernel: skipped, no kernel package is known"; exit 0; }
for package in "$kernel" busybox-static udev systemd usbip; do
    unpack "$package" || exit 0
done

# Without its shell of code that unpacks it, a kernel starts five seconds sooner.
image=$cache/$kernel.elf
if [ ! -e "$image" ]; then
    packed=$(echo "$cache/$kernel"/boot/vmlinuz-*)
    start=$(LC_ALL=C grep -abo -m 1 "$(printf '\3757zXZ')" "$packed" | head -n 1 | cut -d : -f 1)
    tail -c +$((start + 1)) "$packed" | xz -dc --single-stream >"$image.part" 2>/dev/null || true # more follows the stream
    mv "$image.part" "$image"
fi

rm -rf "$root"
mkdir -p "$root/bin" "$root/lib64" "$root/lib/modules" "$root/lib/udev/rules.d" "$root/etc/udev" "$root/dev" "$root/proc" \
    "$root/sys" "$root/run" "$root/tmp"
cp Tests/stacks/guest_init.sh "$root/init"
cp "$cache/busybox-static/bin/busybox" "$cache/udev/bin/udevadm" "$cache/usbip/usr/sbin/usbip" "$build/Tools/tovix/tovix" \
    "$build/Tests/stacks/camera_story" "$build/Tests/stacks/camera_server" "$root/bin/"
cp "$cache/udev"/lib/udev/rules.d/50-udev-default.rules "$cache/systemd"/lib/udev/rules.d/73-seat-late.rules \
    "$root/lib/udev/rules.d/"
cp "$build/70-tovix.rules" "$root/"
cp -r Resources/files "$root/"
for module in common/usb-common core/usbcore usbip/usbip-core usbip/vhci-hcd misc/usbtest host/xhci-hcd host/xhci-pci \
    host/ehci-hcd host/ehci-pci; do
    cp "$cache/$kernel"/lib/modules/*/kernel/drivers/usb/$module.ko "$root/lib/modules/"
done
ldd "$root"/bin/udevadm "$root"/bin/usbip "$root"/bin/tovix "$root"/bin/camera_* | grep -o '/[^ :]*' | grep -v "^$root" | sort -u |
    while read -r library; do cp -L "$library" "$root/lib/"; done
mv "$root"/lib/ld-linux-x86-64.so.2 "$root/lib64/"
disk=$cache/disk
(cd "$root" && find . | cpio --quiet -o -H newc | gzip -1) >"$disk"

# Boot, show what the machine says, and leave with 1 unless all is well there.
boot() { # STAGE COMMAND...: runs QEMU
    stage=$1
    shift
    log=$cache/$stage.log
    echo "kernel: $stage"
    timeout 900 "$@" -machine q35 -cpu qemu64 -m 512 -nodefaults -display none -no-reboot -kernel "$image" \
        -initrd "$disk" -append "console=ttyS0 quiet mitigations=off panic=-1 stage=$stage" </dev/null >"$log" 2>&1 || true
    tr -d '\r' <"$log" | grep -E '^(passed|FAILED|  )' || true
    tr -d '\r' <"$log" | grep -qx 'all passed' || { tail -n 40 "$log" >&2; exit 1; }
}
boot usbip qemu-system-x86_64 -serial stdio

# Cameras from outside, behind emulated controllers. redir_server.cpp says which sockets QEMU gets from it.
set -- -serial stdio -chardev socket,id=orders,fd=10 -serial chardev:orders
for number in 1 2 3; do
    set -- "$@" -chardev socket,id=camera$number,fd=$((10 + number)) \
        -device usb-redir,chardev=camera$number,bus=usb.0,port=$number
done
server=$build/Tests/stacks/redir_server
boot xhci "$server" qemu-system-x86_64 -device qemu-xhci,id=usb "$@"
boot ehci "$server" qemu-system-x86_64 -device usb-ehci,id=usb "$@"
