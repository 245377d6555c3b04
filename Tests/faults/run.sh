#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Every fault in every scenario; an argument is the beginning of the names of some cases.
set -eu
cd "$(dirname "$0")/../.."
Tools/install_test_packages.sh
{ cmake --preset asan && cmake --build --preset asan --target fault_sweep; } >/dev/null
exec build/asan/Tests/faults/fault_sweep "$@"
