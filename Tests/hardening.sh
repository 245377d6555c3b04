#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# What is installed is hardened: hardening.sh optimised|unoptimised FILE...
# Symbols are bound when the file is loaded, and the table of them is read-only from then on; no stack is executable and no
# code is written to; functions with buffers check their stack; a program can be loaded anywhere. Where the code is
# optimised, calls of the C library check the sizes that the compiler knows.
set -eu
optimised=$1
shift
status=0
for file in "$@"; do
    complain() {
        echo "$file: $1"
        status=1
    }
    dynamic=$(readelf -dW "$file")
    segments=$(readelf -lW "$file")
    symbols=$(readelf -W --dyn-syms "$file")
    has() { printf '%s\n' "$1" | grep -Eq "$2"; }
    has "$dynamic" 'BIND_NOW|FLAGS_1.*NOW' || complain "symbols are bound late"
    has "$segments" 'GNU_RELRO' || complain "the table of symbols stays writable"
    has "$segments" 'GNU_STACK.* RW ' || complain "the stack is executable"
    ! has "$dynamic" 'TEXTREL' || complain "code is written to"
    ! has "$segments" 'LOAD.* RWE ' || complain "there is memory to write to and to execute"
    readelf -hW "$file" | grep -q 'DYN' || complain "it is loaded at a fixed address"
    has "$symbols" '__stack_chk_fail' || complain "no function checks its stack"
    [ "$optimised" != optimised ] || has "$symbols" '_chk@' || complain "calls of the C library check no sizes"
done
exit $status
