#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The command-line tool from the outside: what it leaves with, prints and writes.
#
#   tool_test.sh TOOL RESOURCES      TOOL: the tool; RESOURCES: firmware of the simulated cameras
#
# Bringing a camera up takes seconds, so all runs that do are started side by side and looked at afterwards.
set -u
tool=$(realpath "$1")
resources=$(realpath "$2")
work=$(mktemp -d)
declare -A pids
trap 'kill "${pids[@]}" 2>/dev/null; rm -rf "$work"' EXIT
failures=0

fail() { # MESSAGE [RUN]: shows what the run printed
    echo "FAILED: $1"
    [ $# -lt 2 ] || head -c 2000 "$work/$2.out" "$work/$2.err" | tr -c '[:print:]\n' '?'
    failures=$((failures + 1))
}

# Start a run in its own folder.
start() { # RUN ARGUMENT...
    local run=$1
    shift
    mkdir -p "$work/$run"
    (cd "$work/$run" && exec "$tool" --resources "$resources" "$@" >"$work/$run.out" 2>"$work/$run.err") &
    pids[$run]=$!
}

# The end of a run: its status, and nothing on standard error after success, one line and no answer after failure.
ended() { # RUN STATUS [WORDS OF THE LINE]
    wait "${pids[$1]}"
    local status=$?
    unset "pids[$1]"
    [ $status -eq "$2" ] || fail "$1: left with $status instead of $2" "$1"
    if [ "$2" -eq 0 ]; then
        [ ! -s "$work/$1.err" ] || fail "$1: standard error is not empty" "$1"
    else
        [ "$(wc -l <"$work/$1.err")" -eq 1 ] || fail "$1: not one line on standard error" "$1"
        grep -q "^tovix: .*$3" "$work/$1.err" || fail "$1: the line does not say '$3'" "$1"
    fi
}

says() { grep -Eq -- "$2" "$work/$1.out" || fail "$1: the answer has no '$2'" "$1"; }
holds() { # RUN FILE...: the folder has these files and no others
    local run=$1
    shift
    [ "$(ls -A "$work/$run" | tr '\n' ' ')" = "${*:+$* }" ] || fail "$run: the folder holds $(ls -A "$work/$run")"
}
size() { stat -c %s "$work/$1"; }
is_json() { ! command -v jq >/dev/null || jq -e . "$work/$1.out" >/dev/null || fail "$1: not JSON" "$1"; }
be32() { od -An -tu1 -j "$2" -N 4 "$work/$1" | awk '{print (($1 * 256 + $2) * 256 + $3) * 256 + $4}'; }
is_png() { # FILE WIDTH HEIGHT: 8-bit grey, from its signature to its end mark
    [ "$(od -An -tx1 -N 8 "$work/$1" | tr -d ' ')" = 89504e470d0a1a0a ] || fail "$1: not a PNG file"
    [ "$(be32 "$1" 16)x$(be32 "$1" 20)" = "$2x$3" ] || fail "$1: $(be32 "$1" 16)x$(be32 "$1" 20) pixels"
    [ "$(od -An -tu1 -j 24 -N 2 "$work/$1" | tr -s ' ')" = " 8 0" ] || fail "$1: not 8-bit grey"
    [ "$(tail -c 8 "$work/$1" | head -c 4)" = IEND ] || fail "$1: cut off"
    [ "$(size "$1")" -gt 50000 ] || fail "$1: too small for a picture of anything"
}
# Wait until a file is there; the run that makes it may be slow, but not dead.
appears() { # RUN FILE
    for _ in {1..600}; do
        [ ! -e "$work/$1/$2" ] || return 0
        kill -0 "${pids[$1]}" 2>/dev/null || break
        sleep 0.05
    done
    fail "$1: $2 did not appear" "$1"
}

two=(--simulate=mira13c --simulate=lyra03m:1)

# ---- What needs a camera: started here, looked at below
start interrupted --simulate=lyra03m capture -n 1000000 -o 'f%02d.raw'
start listed "${two[@]}" list
start listed_json "${two[@]}" list --json
start verbose --verbose --simulate=lyra03m list
start described_json "${two[@]}" info --camera ly --json
start described --simulate=mira13c info
start picture --simulate=atria06c:5 capture
start raw --simulate=mira13c capture -n 2 -o shot.raw --size 640x480 --offset 16,8 --subsample 2x4 --rate 20000
start measured --simulate=lyra03m stream -n 40 --json
start piped --simulate=lyra03m stream -n 4 -o -
start endless --simulate=lyra03m stream -o -
mkdir -p "$work/full_raw" "$work/full_png" "$work/left"
for kind in raw png; do
    (cd "$work/full_$kind" && ulimit -f 50 &&
        exec "$tool" --resources "$resources" --simulate=lyra03m capture -o a.$kind >"../full_$kind.out" 2>"../full_$kind.err") &
    pids[full_$kind]=$!
done
(cd "$work/left" && { "$tool" --resources "$resources" --simulate=lyra03m stream -o - 2>../left.err; echo $? >../left.out; } | head -c 1000 >reader) &
pids[left]=$!
start too_long --simulate=lyra03m capture --timeout 0.001 -o a.raw
start no_size --simulate=lyra03m capture --size 100x100
start off_sensor --simulate=lyra03m capture --size 640x480 --offset 16,0
start no_rate --simulate=lyra03m capture --rate 7
start no_subsampling --simulate=lyra03m capture --subsample 2
start nobody "${two[@]}" info --camera 99
start ambiguous --simulate=mira13c:1 --simulate=lyra03m info --camera 1
start alike --simulate=mira13c --simulate=mira13m info --camera mira
resources=$work/left start no_firmware --simulate=lyra03m list

# ---- Meanwhile, what needs none
for usage in '' 'lst' 'list --bogus' 'list info' 'capture -n 0' 'capture -n 2x' 'capture --size 10' 'capture --size 70000x1' \
    'capture --timeout nan' 'capture --subsample 0' 'capture --format tiff' 'capture -o a.dat' 'capture -o -' \
    'stream -n 1 --seconds 1' 'stream --json -o -' 'stream --seconds inf' '--simulate=lyra03m:x list' \
    '--resources /nonexistent list'; do
    # shellcheck disable=SC2086
    "$tool" $usage >"$work/usage.out" 2>"$work/usage.err"
    status=$?
    [ $status -eq 2 ] || fail "usage '$usage': left with $status" usage
    [ ! -s "$work/usage.out" ] && [ "$(wc -l <"$work/usage.err")" -eq 1 ] || fail "usage '$usage': output" usage
done
for asked in --help --version 'capture --help'; do
    # shellcheck disable=SC2086
    "$tool" $asked >"$work/usage.out" 2>"$work/usage.err" || fail "$asked: left with $?" usage
    [ -s "$work/usage.out" ] && [ ! -s "$work/usage.err" ] || fail "$asked: output" usage
done

mkfifo "$work/pipe.raw"
touch "$work/file"
start no_model --simulate=nosuch list
start no_folder --simulate capture -o "$work/nonexistent/a.png"
start file_as_folder --simulate capture -o "$work/file/a.png"
start over_folder --simulate capture --format png -o "$work"
start over_pipe --simulate capture -o "$work/pipe.raw"
ended no_model 1 "no simulated model 'nosuch'.*lyra03m"
ended no_folder 1 'cannot write .*No such file'
ended file_as_folder 1 'cannot write .*Not a directory'
ended over_folder 1 'cannot write .*Is a directory'
ended over_pipe 1 'cannot write .*not a regular file'
[ -p "$work/pipe.raw" ] || fail "over_pipe: the pipe lost its name"
start nothing list
if wait "${pids[nothing]}"; then
    echo "a camera is attached: not looked at what happens without one"
else
    ended nothing 1 'no camera found; .*--simulate'
fi

# ---- Interrupted while it writes: whole files only
appears interrupted f03.raw
kill -TERM "${pids[interrupted]}"
ended interrupted 1 'interrupted after [0-9]* of 1000000 frames'
written=$(grep -c . "$work/interrupted.out")
[ "$(find "$work/interrupted" -name '*.raw' -size 307200c | wc -l)" -eq "$written" ] || fail "interrupted: raw files"
[ "$(find "$work/interrupted" -type f | wc -l)" -eq $((2 * written)) ] || fail "interrupted: something is left behind"

# A stream without an end is meant to be interrupted.
for _ in {1..600}; do [ -s "$work/endless.out" ] || sleep 0.05; done
kill -TERM "${pids[endless]}"
ended endless 0
[ $(($(size endless.out) % 307200)) -eq 0 ] && [ -s "$work/endless.out" ] || fail "endless: $(size endless.out) bytes"

# ---- Answers
ended listed 0
says listed '^ *0  mira13c +1001  0x0113   00010203  high$'
says listed '^ *1  lyra03m +1  0x0204   00010203  high$'
[ "$(wc -l <"$work/listed.out")" -eq 2 ] || fail "listed: not one line a camera" listed
ended listed_json 0
is_json listed_json
says listed_json '"serial": 1001'
says listed_json '"model": "lyra03m"'
wait "${pids[verbose]}"
grep -q "^model name: 'lyra03m'" "$work/verbose.err" || fail "verbose: the library's messages are missing" verbose
[ "$(wc -l <"$work/verbose.out")" -eq 1 ] || fail "verbose: the answer is not the list" verbose
ended described_json 0
is_json described_json
says described_json '"serial": 1,'
says described_json '"bytes": 307200'
says described_json '"color_filter": "none"'
ended described 0
says described '^frame +1280 x 1024, 1310720 bytes$'
says described '^color filter +RGGB$'
says described '^data rates .* \[40000\]$'

ended picture 0
says picture '^frame\.png$'
holds picture frame.png
is_png picture/frame.png 816 612

ended raw 0
holds raw shot-0001.raw shot-0001.raw.txt shot-0002.raw shot-0002.raw.txt
[ "$(size raw/shot-0002.raw)" -eq $((320 * 120)) ] || fail "raw: $(size raw/shot-0002.raw) bytes"
[ "$(tr -d '\000' <"$work/raw/shot-0001.raw" | wc -c)" -gt 20000 ] || fail "raw: hardly anything but zeros"
for fact in width=320 height=120 bits=8 color_filter=RGGB x_offset=16 y_offset=8 subsample_x=2 subsample_y=4 \
    model=mira13c serial=1001 frame=2; do
    grep -qx "$fact" "$work/raw/shot-0002.raw.txt" || fail "raw: the description has no $fact"
done

ended measured 0
is_json measured
says measured '"frames": 40,'
says measured '"torn": 0,'
says measured '"skipped": [0-9]+,'
says measured '"median": [0-9]*\.?[0-9]+,'
ended piped 0
[ "$(size piped.out)" -eq $((4 * 640 * 480)) ] || fail "piped: $(size piped.out) bytes"
[ "$(od -An -tu1 -j 644 -N 4 "$work/piped.out" | tr -s ' ')" != " 1 0 0 0" ] || fail "piped: pixels carry row numbers"
wait "${pids[left]}"
[ "$(cat "$work/left.out")" = 0 ] && [ ! -s "$work/left.err" ] || fail "left: not quiet when the reader leaves" left

# ---- Failures: one line, no file
for kind in raw png; do
    ended full_$kind 1 'cannot write a\.'
    holds full_$kind
done
ended too_long 1 'no frame came within 0.001 s'
ended no_size 1 'no size 100x100'
ended off_sensor 1 'not on the sensor; it has 640x480'
ended no_rate 1 'no data rate 7; choose from: .*40000'
ended no_subsampling 1 'cannot subsample'
ended nobody 1 "no camera is '99'; there is: 0 mira13c (serial 1001), 1 lyra03m (serial 1)"
ended ambiguous 1 "more than one camera is '1'"
ended alike 1 "more than one camera is 'mira'"
ended no_firmware 1 'no camera found: unable to open firmware file'
for run in too_long no_size off_sensor no_rate no_subsampling; do holds $run; done

[ $failures -eq 0 ] && echo "all as it should be"
exit $((failures != 0))
