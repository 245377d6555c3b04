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

# A run that is to fail, and the words of its line. All of them end together.
declare -A words_of
fails() { # RUN WORDS ARGUMENT...
    words_of[$1]=$2
    start "$1" "${@:3}"
}

says() { grep -Eq -- "$2" "$work/$1.out" || fail "$1: the answer has no '$2'" "$1"; }
holds() { # RUN FILE...: the folder has these files and no others
    local run=$1
    shift
    [ "$(ls -A "$work/$run" | tr '\n' ' ')" = "${*:+$* }" ] || fail "$run: the folder holds $(ls -A "$work/$run")"
}
size() { stat -c %s "$work/$1"; }
be32() { od -An -tu1 -j "$2" -N 4 "$work/$1" | awk '{print (($1 * 256 + $2) * 256 + $3) * 256 + $4}'; }
is_png() { # FILE WIDTH HEIGHT: 8-bit RGB, from its signature to its end mark
    [ "$(od -An -tx1 -N 8 "$work/$1" | tr -d ' ')" = 89504e470d0a1a0a ] || fail "$1: not a PNG file"
    [ "$(be32 "$1" 16)x$(be32 "$1" 20)" = "$2x$3" ] || fail "$1: $(be32 "$1" 16)x$(be32 "$1" 20) pixels"
    [ "$(od -An -tu1 -j 24 -N 2 "$work/$1" | tr -s ' ')" = " 8 2" ] || fail "$1: not 8-bit RGB"
    [ "$(tail -c 8 "$work/$1" | head -c 4)" = IEND ] || fail "$1: cut off"
    [ "$(size "$1")" -gt 50000 ] || fail "$1: too small for a picture of anything"
}
# A pixel of the 24-bit TIFF file of a run: uncompressed pixels from byte 8 on, 640 a row.
pixel() { # RUN X Y CONDITION on r, g, b
    od -An -tu1 -j $((8 + 3 * ($3 * 640 + $2))) -N 3 "$work/$1/c.tif" | awk "{r = \$1; g = \$2; b = \$3; exit !($4)}" ||
        fail "$1: pixel $2,$3 is$(od -An -tu1 -j $((8 + 3 * ($3 * 640 + $2))) -N 3 "$work/$1/c.tif")"
}
# The mean of 64 x 48 pixels of the chart's grey patch.
patch() { # RUN CONDITION on r, g, b
    for y in {150..197}; do od -An -v -tu1 -w3 -j $((8 + 3 * (y * 640 + 480))) -N 192 "$work/$1/c.tif"; done |
        awk "{r += \$1; g += \$2; b += \$3} END {r /= NR; g /= NR; b /= NR; if (!($2)) {print r, g, b; exit 1}}" ||
        fail "$1: the grey patch is not $2"
}
answers() { # RUN FILTER: true of the answer in JSON, if there is a jq to look
    ! command -v jq >/dev/null || jq -e "$2" "$work/$1.out" >/dev/null || fail "$1: the answer is not $2" "$1"
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
start raw --simulate=mira13c capture --count 2 -o shot.raw --size 640x480 --offset 16,8 --subsample 2x4 --rate 20000
start measured --simulate=lyra03m stream -n 40 --json
start colours --simulate=lyra03c capture -o c.tif --matrix none --flip-x
start piped --simulate=lyra03m stream -n 4 -o -
start endless --simulate=lyra03m stream -o -
mkdir -p "$work/full_raw" "$work/full_png" "$work/full_tif" "$work/left"
for kind in raw png tif; do
    (cd "$work/full_$kind" && ulimit -f 50 &&
        exec "$tool" --resources "$resources" --simulate=lyra03m capture -o a.$kind >"../full_$kind.out" 2>"../full_$kind.err") &
    pids[full_$kind]=$!
done
(cd "$work/left" && { "$tool" --resources "$resources" --simulate=lyra03m stream -o - 2>../left.err; echo $? >../left.out; } | head -c 1000 >reader) &
pids[left]=$!
mkdir -p "$work/deaf"
(cd "$work/deaf" && exec "$tool" --resources "$resources" --simulate=lyra03m capture --count 2 >/dev/full 2>../deaf.err) &
pids[deaf]=$!
fails too_long 'no frame came within 0.001 s' --simulate=mira50m capture --timeout 0.001 -o a.raw
fails no_size 'no size 100x100' --simulate=lyra03m capture --size 100x100
fails off_sensor 'not on the sensor; it has 640x480' --simulate=lyra03m capture --size 640x480 --offset 16,0
fails no_rate 'no data rate 7; choose from: .*40000' --simulate=lyra03m capture --rate 7
fails no_subsampling 'cannot subsample' --simulate=lyra03m capture --subsample 2
fails nobody "no camera is '99'; there is: 0 mira13c (serial 1001), 1 lyra03m (serial 1)" "${two[@]}" info --camera 99
fails ambiguous "more than one camera is '1'" --simulate=mira13c:1 --simulate=lyra03m info --camera 1
fails alike "more than one camera is 'mira'" --simulate=mira13c --simulate=mira13m info --camera mira
resources=$work/left fails no_firmware 'no camera found: unable to open firmware file' --simulate=lyra03m list

# Properties and adjustments. The light makes what is grey red, and 0.2 ms are a fiftieth of what fits the chart.
sunset=(--simulate=lyra03c --light 1,0.6,0.35)
start got --simulate=lyra03c get
start without_matrices --simulate=atlas13c set gain=2 digital_gain=1.5
start got_json --simulate=lyra03m get exposure TEMPERATURE 43 --json
start put --simulate=lyra03c set TOVIX_PROP_Exposure=12.5 gain-red=1.5 71=1.25 digital_hue=-20 temperature=-10
start put_json --simulate=lyra03c set temperature=off flipping=3 --json
fails out_of_range 'gain=9 is out of range: gain is 1 to 8$' --simulate=lyra03c set exposure=20 gain=9
fails wraps 'out of range: exposure is 0.01 to 60000 ms$' --simulate=lyra03c set exposure=4294967.306
fails absent 'this camera has no gain_red$' --simulate=lyra03m set gain_red=2
fails half_degree 'whole degrees$' --simulate=lyra03c set temperature=20.5
start brightens --simulate=lyra03m auto exposure --set exposure=0.2
start darkens --simulate=lyra03m auto exposure --set exposure=100 --target 100 --roi 20,20,300x200 --json
fails at_maximum 'gain is at its maximum of 8 and the picture is still darker (mean [0-9.]*) than 64; ' \
    --simulate=lyra03m auto gain --set exposure=0.2
fails at_minimum 'exposure is at its minimum of 0.01 ms and the picture is still brighter' \
    --simulate=lyra03m --light 1000,1000,1000 auto exposure --set gain=8 --target 5 --json
fails too_few 'exposure has not settled after 1 step; ' --simulate=lyra03m auto exposure --set exposure=0.2 --steps 1
start whitens "${sunset[@]}" auto white-balance --json
start at_once "${sunset[@]}" auto white-balance --one-shot --json
start digitally "${sunset[@]}" auto digital-white-balance --set flipping=1 --roi 480,150,64x48 --json
fails too_dark 'too dark to measure its colours: its mean is [0-9.]* of 255; ' \
    "${sunset[@]}" auto white-balance --set exposure=0.5
fails too_bright 'too bright to measure its colours: [0-9]* % ' \
    "${sunset[@]}" auto digital-white-balance --set exposure=50
fails colourless 'this camera is monochrome' --simulate=lyra03m auto white-balance
fails lensless 'this camera has no focus drive' --simulate=lyra03m auto focus
fails off_frame '640x482 at 0,0 is not in the frame, which has 640x480' --simulate=lyra03m auto gain --roi 0,0,640x482
fails odd_cells 'have to be even$' "${sunset[@]}" auto white-balance --roi 1,0,64x64
start tinted "${sunset[@]}" capture -o c.tif
start mended "${sunset[@]}" capture -o c.tif --set exposure=0.2 --auto exposure --auto white-balance
start mended_later "${sunset[@]}" capture -o c.tif --gamma 2 --auto digital-white-balance
start far_off --simulate=lyra03c --light 0.1,0.3,1 capture -o c.tif --auto white-balance
fails unmatched 'no colour matrix has no white balance; choose' \
    --simulate=lyra03c --light 0.1,0.3,1 capture -o c.tif --auto white-balance --matrix none
start turned --simulate=lyra03c --noise 0 capture -o c.tif --set flipping=1 --set correction_matrix=0 --method edge
start blurred --simulate=lyra03m --noise 0 --blur 3 capture -o c.tif
fails unmended 'this camera is monochrome' --simulate=lyra03m capture -o c.tif --auto exposure --auto white-balance

# ---- Meanwhile, what needs none
for usage in '' 'lst' 'list --bogus' 'list info' 'capture -n 0' 'capture -n 2x' 'capture --size 10' 'capture --size 70000x1' \
    'capture --timeout nan' 'capture --subsample 0' 'capture --format bmp' 'capture -o a.dat' '--picture /dev/null list' \
    'capture -o a.raw --gamma 2' 'capture -o a.png --bits 16' 'capture --method best' 'capture --gains 1,2' \
    'capture --gains 1,2,3 --gain 2' 'capture --gains 1,1,1 --saturation 0.05' 'capture --matrix none --hue 5' \
    'capture --matrix 14' 'convert' 'convert a.raw' 'convert a.raw -o b.raw' 'convert a.raw -o -' \
    'convert a.raw -o a.png --phase RGB' 'convert a.raw -o a.png --depth 12' 'convert a.raw -o a.png --width 65536' \
    'convert a.raw -o a.png --product 0x10000' 'convert a.raw -o a.png --product 1 --model mira13c' 'capture -o -' \
    'stream --count 1 --seconds 1' 'stream --json -o -' 'stream --seconds inf' '--simulate=lyra03m:x list' \
    '--resources /nonexistent list' '--light 1,1,1 list' '--simulate --light 1,1 list' '--simulate --blur -1 list' \
    'get nothing' 'set' 'set exposure' 'set exposure=' 'set exposure=nan' 'set gain=1 gian=2' 'set 999=1' \
    'set max_width=5' 'set gain=off' 'auto' 'auto shutter' 'auto gain --target 0' 'auto focus --target 9' \
    'auto gain --one-shot' 'auto gain --roi 1,2' 'auto gain --roi 1,2,0x3' 'auto gain --roi 0,0,3x4' 'auto gain --set x=1' 'capture --auto all' \
    'capture --target 9' 'capture -o a.raw --set digital_hue=3' 'capture -o a.raw --auto digital-white-balance' \
    'capture --gains 1,1,1 --auto digital-white-balance' 'simulate' 'simulate --usbip --port 65536' \
    'simulate --usbip --model mira13c:x' '--simulate simulate --usbip'; do
    # shellcheck disable=SC2086
    "$tool" $usage >"$work/usage.out" 2>"$work/usage.err"
    status=$?
    [ $status -eq 2 ] || fail "usage '$usage': left with $status" usage
    [ ! -s "$work/usage.out" ] && [ "$(wc -l <"$work/usage.err")" -eq 1 ] || fail "usage '$usage': output" usage
done
for near in 'expsure exposure' 'gian gain' 'BLOCK block_640' 'digital_gain_gren digital_gain_green'; do
    "$tool" get "${near% *}" 2>"$work/usage.err" && fail "get ${near% *}: taken"
    grep -q "did you mean .*${near#* }" "$work/usage.err" || fail "get ${near% *}: no hint of ${near#* }"
done
for asked in --help --version 'capture --help' 'auto --help'; do
    # shellcheck disable=SC2086
    "$tool" $asked >"$work/usage.out" 2>"$work/usage.err" || fail "$asked: left with $?" usage
    [ -s "$work/usage.out" ] && [ ! -s "$work/usage.err" ] || fail "$asked: output" usage
done

# ---- Conversions, without a camera. Files are made and compared byte by byte: uncompressed TIFF has its pixels from
# byte 8 on.
mkdir -p "$work/convert"
cd "$work/convert" || exit 1
raw() { # FILE BYTE...
    local file=$1
    shift
    printf "$(printf '\\%03o' "$@")" >"$file"
}
makes() { # "BYTES" ARGUMENT...: the first bytes of the picture that convert makes with these
    local expected=$1
    shift
    rm -f out.tif
    "$tool" convert "$@" -o out.tif >../convert.out 2>../convert.err || fail "convert $*: left with $?" convert
    # shellcheck disable=SC2086,SC2046
    got=$(echo $(od -An -v -tu1 -j 8 -N "$(set -- $expected && echo $#)" out.tif))
    [ "$got" = "$expected" ] || fail "convert $*: $got instead of $expected"
}
tags() { # TAG=VALUE...: short numbers in the directory of out.tif
    local words tag
    words=" $(od -An -v -tu2 out.tif | tr -s ' \n' ' ')"
    for tag in "$@"; do
        [[ $words == *" ${tag%=*} 3 1 0 ${tag#*=} "* ]] || fail "out.tif: no tag $tag"
    done
}
refuses() { # WORDS ARGUMENT...: one line, status 1, no file
    local words=$1 status
    shift
    "$tool" convert "$@" >../convert.out 2>../convert.err
    status=$?
    [ $status -eq 1 ] && [ ! -s ../convert.out ] && [ "$(wc -l <../convert.err)" -eq 1 ] || fail "convert $*: $status" convert
    grep -q "^tovix: .*$words" ../convert.err || fail "convert $*: the line does not say '$words'" convert
    [ -z "$(find . -newer ../mark -name 'no*')" ] || fail "convert $*: left a file behind"
}
touch ../mark

# 4 x 4 samples of one colour, in each order of the filter: every method finds it everywhere.
four=(--width 4 --height 4)
for order in 'RGGB 120 100 100 80' 'GRBG 100 120 80 100' 'GBRG 100 80 120 100' 'BGGR 80 100 100 120'; do
    read -r phase a b c d <<<"$order"
    raw "$phase" "$a" "$b" "$a" "$b" "$c" "$d" "$c" "$d" "$a" "$b" "$a" "$b" "$c" "$d" "$c" "$d"
    for method in nearest edge zurno quelt four-colour; do
        makes "$(printf '120 100 80 %.0s' {1..16} | sed 's/ $//')" $phase "${four[@]}" --phase $phase --method $method
    done
done
tags 256=4 257=4 277=3 262=2
one=(RGGB "${four[@]}" --phase RGGB)
makes '132 99 65' "${one[@]}" --model lyra03c # its first matrix, worked out by hand
makes '132 99 65' "${one[@]}" --product 0x0203 --matrix 1
makes '127 99 69' "${one[@]}" --product 515 --matrix 5
makes '120 100 80' "${one[@]}" --model lyra03c --matrix none
makes '145 126 106' "${one[@]}" --brightness 0.1
makes '112 72 32' "${one[@]}" --contrast 2
makes '174 159 142' "${one[@]}" --gamma 2
# By hand: luminance 103.7, chroma -13.4 and 11.6, which these scale, shift or turn.
for adjusted in '68 48 28 --gain 0.5' '68 203 132 --gains 0.5,2,1.5' '104 104 104 --saturation 0' \
    '87 107 127 --hue 180'; do
    read -r r g b option value <<<"$adjusted"
    makes '' "${one[@]}" "$option" "$value"
    od -An -tu1 -j 8 -N 3 out.tif | awk "function near(x, y) {return x - y <= 2 && y - x <= 2}
        {exit !(near(\$1, $r) && near(\$2, $g) && near(\$3, $b))}" || fail "$adjusted: $(od -An -tu1 -j 8 -N 3 out.tif)"
done

# Grey: rows that the library pads, flips, bytes and words. In words, samples may come either way round.
raw ramp 1 2 3 4 5 6 11 12 13 14 15 16
ramp=(ramp --width 6 --height 2 --phase none)
makes '1 2 3 4 5 6 11 12 13 14 15 16' "${ramp[@]}"
tags 256=6 257=2 258=8 277=1 262=1
makes '6 5 4 3 2 1 16 15 14 13 12 11' "${ramp[@]}" --flip-x
makes '11 12 13 14 15 16 1 2 3 4 5 6' "${ramp[@]}" --flip-y
makes '16 15 14 13 12 11 6 5 4 3 2 1' ramp --width 6 --height 2 --phase BGGR --method none --flip-x --flip-y
makes '1 1 2 2 3 3' "${ramp[@]}" --bits 16
tags 258=16 277=1
raw words 1 2 3 4 5 6 7 8
words=(words --width 2 --height 2 --phase none --depth 16)
makes '1 2 3 4 5 6 7 8' "${words[@]}"
makes '2 1 4 3 6 5 8 7' "${words[@]}" --byte-order big
makes '2 4 6 8' "${words[@]}" --bits 8
makes '1 3 5 7' "${words[@]}" --bits 8 --byte-order big
# shellcheck disable=SC2046
raw wide $(od -An -v -tu1 -w1 RGGB | sed 's/^/7 /')
makes '7 120 7 100 7 80 7 120' wide "${four[@]}" --phase RGGB --depth 16
tags 277=3
makes '120 100 80 120' wide "${four[@]}" --phase RGGB --depth 16 --bits 8 --method edge

# The description says what options do not.
cp RGGB told
printf '%s\n' width=4 height=4 bits=8 byte_order=little color_filter=RGGB model=never product_id=0x0203 frame=1 >told.txt
makes '132 99 65' told
makes '80 100 120' told --phase BGGR --matrix identity
makes '120 100 120 100 100 80 100 80' told --width 8 --height 2 --method none
for hostile in 'width=99999999999' 'width=-4' 'width=0' 'width= 4' 'width' '=4' 'width=4=4' 'colour=red' 'bits=12' \
    'byte_order=middle' 'color_filter=RGBG' 'product_id=0x12345' 'product_id=515' 'height=4' 'serial=x' '' '\0' \
    '\377\376w'; do
    { printf 'height=4\ncolor_filter=RGGB\n'; printf "$hostile\n"; } >told.txt
    refuses 'told.txt, line 3: ' told -o no.png
done
printf 'height=4\nwidth=4\n' >told.txt
refuses 'colour filter of told: .*--phase' told -o no.png
printf 'width=4\ncolor_filter=RGGB\nmodel=nobody' >told.txt
refuses 'height of told: .*--height' told -o no.png
refuses 'would replace told.txt' told -o told.txt --format png --height 4 --matrix identity
refuses "no model 'nobody'" told -o no.png --height 4
makes '120 100 80' told --height 4 --matrix identity
head -c 100000 /dev/zero >told.txt
refuses 'told.txt: .*more than' told -o no.png
rm told.txt
refuses 'told has 16 bytes, but 5 x 4' told -o no.png --width 5 --height 4 --phase RGGB
refuses '65535 x 65535 samples of 16 bits are 8589672450' told -o no.png --width 65535 --height 65535 --phase RGGB \
    --depth 16
truncate -s 1G sparse
refuses 'more than' sparse -o no.png --width 32768 --height 32768 --phase RGGB
refuses '1 x 16 cannot' told -o no.png --width 1 --height 16 --phase none
refuses 'nothing tells the model; give --model' "${one[@]}" -o no.png --matrix model
refuses 'no matrix 13; choose from: 1 2 5$' "${one[@]}" -o no.png --model mira13c --matrix 13
refuses 'has product ID 0x9999' "${one[@]}" -o no.png --product 0x9999
refuses 'grey; leave out' "${one[@]}" -o no.png --method none --hue 3
refuses 'four-colour' "${one[@]}" -o no.tif --method four-colour --bits 16
refuses 'No such file' nothing -o no.png
refuses 'not a regular file' . -o no.png
refuses 'would replace' RGGB "${four[@]}" --phase RGGB -o ./RGGB --format png
refuses 'cannot write' "${one[@]}" -o nowhere/no.png
[ "$(ls ./*.part-* 2>/dev/null)" = "" ] || fail "convert: temporary files are left"
"$tool" convert "${one[@]}" -o flat.png >../convert.out 2>&1 || fail "convert to PNG" convert
[ "$(cat ../convert.out)" = flat.png ] || fail "convert: the answer is not the name" convert
cd "$work" || exit 1
start seen --simulate=lyra03m --picture "$work/convert/flat.png" capture -o s.tif

mkfifo "$work/pipe.raw"
touch "$work/file"
fails no_model "no simulated model 'nosuch'.*lyra03m" --simulate=nosuch list
fails no_folder 'cannot write .*No such file' --simulate capture -o "$work/nonexistent/a.png"
fails file_as_folder 'cannot write .*Not a directory' --simulate capture -o "$work/file/a.png"
fails over_folder 'cannot write .*Is a directory' --simulate capture --format png -o "$work"
fails over_pipe 'cannot write .*not a regular file' --simulate capture -o "$work/pipe.raw"
start nothing list --json
if wait "${pids[nothing]}"; then
    echo "a camera is attached: not looked at what happens without one"
else
    pids[nothing]=
    [ "$(cat "$work/nothing.out")" = "[]" ] || fail "nothing: not an empty answer" nothing
    grep -q '^tovix: no camera found; .*--simulate' "$work/nothing.err" || fail "nothing: no reason" nothing
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

# ---- Failures: one line, no file
for run in "${!words_of[@]}"; do
    ended $run 1 "${words_of[$run]}"
    holds $run
done
[ -p "$work/pipe.raw" ] || fail "over_pipe: the pipe lost its name"
for kind in raw png tif; do
    ended full_$kind 1 'cannot write a\.'
    holds full_$kind
done
ended deaf 1 'cannot write to standard output: No space left'
holds deaf frame-0001.png

# ---- All others succeed
for run in listed listed_json described_json described picture raw seen colours measured piped got without_matrices \
    got_json put put_json brightens darkens whitens at_once digitally tinted mended mended_later far_off turned \
    blurred; do
    ended $run 0
done

# ---- Answers
says listed '^ *0  mira13c +1001  0x0113   00010203  high$'
says listed '^ *1  lyra03m +1  0x0204   00010203  high$'
[ "$(wc -l <"$work/listed.out")" -eq 2 ] || fail "listed: not one line a camera" listed
answers listed_json '.[0].serial == 1001 and .[1].model == "lyra03m"'
wait "${pids[verbose]}"
grep -q "^model name: 'lyra03m'" "$work/verbose.err" || fail "verbose: the library's messages are missing" verbose
[ "$(wc -l <"$work/verbose.out")" -eq 1 ] || fail "verbose: the answer is not the list" verbose
answers described_json '.serial == 1 and .frame.bytes == 307200 and .color_filter == "none"
    and (.properties | length == 27 and .gain.register == "0x04F0" and .max_width.min == null)'
says described '^frame +1280 x 1024, 1310720 bytes$'
says described '^color filter +RGGB$'
says described '^data rates .* \[40000\]$'

says picture '^frame\.png$'
holds picture frame.png
is_png picture/frame.png 816 612

holds raw shot-0001.raw shot-0001.raw.txt shot-0002.raw shot-0002.raw.txt
[ "$(size raw/shot-0002.raw)" -eq $((320 * 120)) ] || fail "raw: $(size raw/shot-0002.raw) bytes"
[ "$(tr -d '\000' <"$work/raw/shot-0001.raw" | wc -c)" -gt 20000 ] || fail "raw: hardly anything but zeros"
for fact in width=320 height=120 bits=8 color_filter=RGGB x_offset=16 y_offset=8 subsample_x=2 subsample_y=4 \
    model=mira13c serial=1001 frame=2; do
    grep -qx "$fact" "$work/raw/shot-0002.raw.txt" || fail "raw: the description has no $fact"
done

# What was captured needs no words to become a picture.
(cd "$work/raw" && "$tool" convert shot-0001.raw -o ../shot.png >/dev/null) || fail "shot-0001.raw cannot be converted"
[ "$(be32 shot.png 16)x$(be32 shot.png 20)" = 320x120 ] || fail "shot.png: $(be32 shot.png 16)x$(be32 shot.png 20)"
[ "$(od -An -v -tu1 -j 8 -N 3000 -w1 "$work/seen/s.tif" | sort -n | uniq | awk 'NR == 1 {a = $1} {b = $1}
    END {print (a > 20 && b < 50)}')" = 1 ] || fail "seen: not the picture that it looks at"

# The chart's red and blue patches, on a sensor that begins with blue, seen from behind.
holds colours c.tif
pixel colours 575 144 'r > 2 * g && r > 2 * b'
pixel colours 507 172 'b > 2 * r && b > 1.5 * g'

answers measured '.frames == 40 and .torn == 0 and .skipped >= 0 and .interval_ms.median > 0'
[ "$(size piped.out)" -eq $((4 * 640 * 480)) ] || fail "piped: $(size piped.out) bytes"
[ "$(od -An -tu1 -j 644 -N 4 "$work/piped.out" | tr -s ' ')" != " 1 0 0 0" ] || fail "piped: pixels carry row numbers"
wait "${pids[left]}"
[ "$(cat "$work/left.out")" = 0 ] && [ ! -s "$work/left.err" ] || fail "left: not quiet when the reader leaves" left

# ---- Properties
[ "$(wc -l <"$work/got.out")" -eq 27 ] || fail "got: not one line a property" got
says got '^exposure=10$'
says got '^digital_gain=1$'
answers got_json '.exposure == {id: 20, value: 10, min: 0.01, max: 60000, unit: "ms", kept_by: "camera",
    register: "0x04A0", present: true, on: false, flags: 2147483648} and .temperature.min == -30
    and .gain_green1.present == false and length == 3'
[ "$(cut -d ' ' -f 1 "$work/put.out" | tr '\n' ' ')" = \
    'exposure=12.5 gain_red=1.5 digital_gain=1.25 digital_hue=-19.99 temperature=25 ' ] || fail "put: the values" put
says put '^temperature=25 .*on, goal -10'
answers put_json '.temperature.on == false and .flipping.value == 3'
says described '^ *20  exposure +10  0\.01 to 60000 +ms +camera 0x04A0$'
says described '^ *81  max_width +1280 '

# ---- Adjustments
says brightens '^step 1  mean [0-9.]+  exposure 0\.2$'
says brightens '^settled after [2-4] steps$'
answers darkens '.settled and .target == 100 and .roi == {x: 20, y: 20, width: 300, height: 200}
    and (.steps[-1].mean - 100 | fabs) <= 3 and .steps[0].mean > 150'
says at_maximum '^step 2  mean [0-9.]+  gain 8$'
answers at_minimum '.settled == false and (.reason | startswith("exposure is at its minimum"))'
for run in whitens at_once digitally; do
    answers $run '.settled and .steps[0].red_to_green > 1.4 and .steps[0].blue_to_green < 0.7
        and ([.steps[-1].red_to_green, .steps[-1].blue_to_green] | all(. > 0.97 and . < 1.03))'
done
answers at_once '(.steps | length) == 2 and .steps[1].gain_blue > 2'

patch tinted 'r > 1.4 * g && b < 0.7 * g'
patch mended 'r < 1.02 * g && g < 1.02 * r && b < 1.02 * g && g < 1.02 * b && g > 50'
for run in mended_later far_off; do patch $run 'r < 1.02 * g && g < 1.02 * r && b < 1.02 * g && g < 1.02 * b'; done
pixel turned 575 144 'r > 2 * g && r > 2 * b' # the chart's red patch, from behind
# A line from black to white takes a few pixels.
od -An -v -tu1 -w1 -j $((8 + 300 * 640)) -N 640 "$work/blurred/c.tif" | awk 'NR > 1 && ($1 - last > 80 || last - $1 > 80) {exit 1}
    {last = $1}' || fail "blurred: an edge is sharp"

# ---- Cameras for others: a list for whoever asks, one server a port, an end when asked for it
start lender simulate --usbip --json --port 0 --model lyra03m:7 --model mira13c
until [ -s "$work/lender.out" ] || ! kill -0 "${pids[lender]}" 2>/dev/null; do sleep 0.05; done
port=$(sed -n 's/.*"port": \([0-9]*\).*/\1/p' "$work/lender.out")
for client in silent list; do
    exec {socket}<>"/dev/tcp/127.0.0.1/$port"
    [ $client = silent ] || printf '\x01\x11\x80\x05\0\0\0\0' >&"$socket"
    [ $client = silent ] || timeout 10 cat <&"$socket" >"$work/lent"
done
[ "$(size lent)" -eq $((12 + 2 * 316)) ] || fail "lender: $(size lent) bytes are no list of two cameras"
answers lender '[.. | .busid? // empty] | contains(["1-2"])'
start second_lender simulate --usbip --port "$port"
ended second_lender 1 'cannot listen on 127.0.0.1:.*: Address already in use'
kill -TERM "${pids[lender]}"
ended lender 0

[ $failures -eq 0 ] && echo "all as it should be"
exit $((failures != 0))
