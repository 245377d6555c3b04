#!/bin/busybox sh
# SPDX-License-Identifier: Apache-2.0
# The first and only process tree of the emulated machine: tests the library on its kernel, says what passed, and switches
# the machine off. The word "stage" of the kernel's command line names the way on which cameras come to it.
/bin/busybox --install -s /bin
export PATH=/bin TOVIX_RESOURCES=/files
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
mount -t tmpfs run /run
mkdir -p /var/run # usbip notes there what it attached
chmod 1777 /tmp
echo 'root::0:0::/:/bin/sh' >/etc/passwd
echo 'user::1000:1000::/:/bin/sh' >>/etc/passwd
failures=0

modules() { for module in "$@"; do insmod "/lib/modules/$module.ko"; done; }
# As for its output, only that of a failure is of interest.
check() { # NAME COMMAND...
    name=$1
    shift
    began=$(cut -d ' ' -f 1 /proc/uptime)
    if "$@" >/tmp/log 2>&1; then
        echo "passed $name ($began to $(cut -d ' ' -f 1 /proc/uptime) s)"
    else
        echo "FAILED $name"
        tail -n 60 /tmp/log | sed 's/^/  /'
        failures=$((failures + 1))
    fi
}
as_user() { su user -c "$*"; }
soon() { # COMMAND...: within two seconds
    for _ in 1 2 3 4 5 6 7 8 9 10; do
        "$@" && return
        sleep 0.2
    done
    return 1
}

# The cameras: 1 and 2 have an FPGA, 3 is without one.
tell() { # plug|unplug NUMBER
    echo "$*" >/run/commands && read -r answer </run/answers && [ "$answer" = done ]
}
plug_all() { for number in 1 2 3; do tell plug $number; done && soon shown 3; }
unplug_all() { for number in 1 2 3; do tell unplug $number; done && soon shown 0; }
nodes() { # of devices that are no root hubs
    for device in /sys/bus/usb/devices/*; do
        if [ -e "$device/bConfigurationValue" ] && ! grep -q 1d6b "$device/idVendor"; then
            printf '/dev/bus/usb/%03d/%03d\n' "$(cat "$device/busnum")" "$(cat "$device/devnum")"
        fi
    done
}
shown() { [ "$(nodes | wc -l)" -eq "$1" ]; }

list_all() { tovix --resources /files list >/tmp/answer && [ "$(wc -l </tmp/answer)" -eq 3 ]; }

# A driver of the kernel takes every FX2 that does not know its maker.
usbtest() {
    modules usbtest && plug_all && soon test -e /sys/bus/usb/drivers/usbtest/*:1.0 || return
    list_all && unplug_all && rmmod usbtest
}

# Without a rule only root may open a device, be it bare or not.
user_without_rule() {
    plug_all && refused && list_all && refused && unplug_all
}
refused() {
    as_user tovix --resources /files list >/tmp/answer 2>&1
    local status=$?
    cat /tmp/answer
    [ $status -eq 1 ] && grep -q '^tovix: no permission to use the camera; install the udev rule' /tmp/answer
}

# The rule marks the nodes for whoever sits at the machine. Who that is, udev reads in a file of the login manager, of which
# there is none here: the file says that it is our user.
user_with_rule() {
    mkdir -p /run/systemd/seats
    printf 'ACTIVE=c1\nACTIVE_UID=1000\n' >/run/systemd/seats/seat0
    cp /70-tovix.rules /lib/udev/rules.d/
    udevadm control --reload && plug_all && udevadm settle --timeout=30 || return
    for node in $(nodes); do
        marked "$node" || { echo "$node is not marked" && return 1; }
    done
    as_user tovix --resources /files stream -n 20 && as_user tovix list && unplug_all
}
marked() { udevadm info "$1" | grep -q '^E: CURRENT_TAGS=.*:uaccess:'; }

# The product's server, and the client that every distribution has. A bare camera leaves with its firmware and has to be
# attached again, which only its new identity tells.
usbip_tools() {
    ifconfig lo up
    tovix simulate --usbip --model lyra03m:7 &
    local server=$!
    soon attach || return
    list_one &
    local lister=$!
    while [ ! -e /tmp/listed ]; do attach; sleep 0.1; done 2>/dev/null
    wait $lister && grep -q ' lyra03m  *7 ' /tmp/answer && tovix stream -n 20 || return
    kill $server && wait $server && soon shown 0
}
attach() { usbip attach -r 127.0.0.1 -b 1-1; }
list_one() {
    tovix --resources /files list >/tmp/answer
    local status=$?
    touch /tmp/listed
    return $status
}

stage=$(sed 's/.*stage=//' /proc/cmdline)
modules usb-common usbcore
ln -s udevadm /bin/udevd
case $stage in
usbip)
    modules usbip-core vhci-hcd
    # Its many empty hubs are read in each search for devices.
    for controller in 1 2 3 4 5 6 7; do echo vhci_hcd.$controller >/sys/bus/platform/drivers/vhci_hcd/unbind; done
    mkfifo -m 666 /run/commands /run/answers
    export TOVIX_CAMERA_CONTROL=/run/commands:/run/answers
    camera_server mira13c lyra03m atlas13c <>/run/commands >/run/answers 3<>/run/answers 2>/dev/null &

    check 'story, no device manager' camera_story
    udevd --daemon 2>/dev/null
    check 'story, device manager' camera_story
    check 'bare FX2 held by usbtest' usbtest
    check 'ordinary user, no rule' user_without_rule
    check 'ordinary user, rule' user_with_rule
    check 'tovix simulate, usbip attach' usbip_tools
    ;;
xhci | ehci) # a controller of the machine; whoever runs that serves the cameras, and listens at the second serial line
    modules "$stage-hcd" "$stage-pci"
    exec 3<>/dev/ttyS1 # so that it keeps its settings
    stty -F /dev/ttyS1 raw -echo
    export TOVIX_CAMERA_CONTROL=/dev/ttyS1
    udevd --daemon 2>/dev/null
    check "story, $stage" camera_story
    ;;
esac
[ $failures -ne 0 ] || echo 'all passed'
poweroff -f
