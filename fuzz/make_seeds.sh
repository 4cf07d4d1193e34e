#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Writes the seeds that are not text, below fuzz/seeds: fuzz/make_seeds.sh. The other seeds there
# are files as they come, and findings that were mended.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/seeds"

# Bytes are passed on as hexadecimal digits.
words() { # NUMBER...: little-endian words
    local number
    for number in "$@"; do
        printf '%02x%02x%02x%02x' $((number & 255)) $((number >> 8 & 255)) \
            $((number >> 16 & 255)) $((number >> 24 & 255))
    done
}
text() { printf %s "$1" | od -An -v -tx1 | tr -d ' \n'; }
zeros() { printf '%0*d' $(($1 * 2)) 0; }

# An input is contents, then its decisions from the last to the first (fuzz/harness.h).
seed() { # TARGET NAME CONTENTS DECISION...
    local target=$1 name=$2 digits=$3 decision reversed=
    shift 3
    for decision in "$@"; do reversed=$(printf '%02x' "$decision")$reversed; done
    mkdir -p "$target"
    # shellcheck disable=SC2059
    printf "$(printf %s "$digits$reversed" | sed 's/../\\x&/g')" >"$target/$name"
}

# --- dfu: decisions as Download::step reads them; a request is id, count, 1, small words ---
result=0 session=1 erase=2 state=3 error=4 end=5 raw=6 request=9
info=3 fragment=7 cancel=10 session_end=13 special=15 # places of the ids in kKnownIds
seed dfu whole-session "" 0 $erase \
    $request $special 1 1 0 $request $special 1 1 0 $request $special 4 1 1 0 0 0 \
    $request $info 1 1 1 $request $fragment 3 1 1 0 100 $request $fragment 3 1 1 250 100 \
    $request $info 1 1 3 $request $fragment 3 1 3 0 255 $request $session_end 0 1 $end
seed dfu resumed-in-an-image "" 0 $error 1 $request $special 7 1 1 0 0 2 3 64 36
seed dfu resumed-at-the-end "" 0 $error 1 $request $special 4 1 1 0 0 3
seed dfu failed-sends "" 0 $result 2 $request $info 1 1 3 $result 3 $result 4 \
    $request $fragment 3 1 3 0 50
seed dfu failed-open "" 0 $end $session 1 $erase $request $info 1 1 3
seed dfu fragment-at-the-largest-offset "$(words 1 0xffffffff 0xffffffff 1 299 0x10000)" \
    0 $request $fragment 3 0 $request $fragment 3 0
seed dfu fragment-too-large "$(words 1 0 0x1000001)" 0 $request $fragment 3 0
seed dfu cancel-in-short-packets "$(words 7)0500" 0 $raw 4 $raw 2 $raw 0 $request $cancel 0 0
seed dfu without-images "" 1 $state $request $special 4 1 1 0 0 0 $session 0

# --- flash_patch: a 32-bit or 64-bit image with two program headers, at an offset ---
elf_header() { # 1|2 COUNT: the headers follow at once
    local fields
    printf '7f454c46%02x' "$1"
    if [ "$1" = 1 ]; then fields="$(zeros 23)$(words 52)$(zeros 12)"; else
        fields="$(zeros 27)$(words 64 0)$(zeros 16)"
    fi
    printf '%s%02x00' "$fields" "$2"
    zeros 6
}
header32() { printf '%s' "$(words 1 "$1" "$2" 0 0 0 0 0)"; } # FILE_OFFSET ADDRESS
header64() { printf '%s' "$(words 1 0 "$1" 0 "$2" "$3" 0 0 0 0 0 0 0 0)"; }
seed flash_patch block-32 \
    "$(zeros 12)$(elf_header 1 2)$(header32 0 0)$(header32 116 0x20147fa4)$(zeros 20)" 0 12 1 7
seed flash_patch block-cut-by-the-end \
    "$(elf_header 1 2)$(header32 0 0)$(header32 117 0x20147fa4)$(zeros 20)" 0 0 1 7
seed flash_patch block-64 \
    "$(elf_header 2 2)$(header64 0 0 0)$(header64 176 0x20147fa4 0)$(zeros 20)" 0 0 0 3
seed flash_patch address-above-4-gib \
    "$(elf_header 2 2)$(header64 0 0 0)$(header64 176 0x20147fa4 1)$(zeros 20)" 0 0 0 3
seed flash_patch block-over-the-headers \
    "$(elf_header 1 3)$(header32 0 0)$(header32 112 0x20147fa4)$(header32 148 0x20147fa4)$(zeros 20)" \
    0 0 1 1
seed flash_patch block-outside "$(elf_header 1 2)$(header32 0 0)$(header32 0xfffffff0 0x20147fa4)" \
    0 0 1 1
seed flash_patch offset-negative "$(words 0x80000000)$(elf_header 1 2)" 1 0 0
seed flash_patch no-elf "$(text "not an image")" 0 0

# --- framing: channel and read size; then, connection by connection, what the error callback does,
# what is scripted for the reader, how the open goes, the user's steps, how it ends ---
dfu="0 0" rma="1 0" misc="2 0" quiet="0 0" sends="1 0" deletes="0 1" opens="0 0" closes="0 1"
packet() { echo "6 1 $1 0 0 0"; }              # BYTES_BEHIND_16, in one read
odd_length() { echo "6 1 12 0 1 $1 0"; }       # PLACE_IN_kOddLengths
again=0 fails="1 0" polls=2 event=3 bytes=4 reconnects=0 hangs_up=1
# shellcheck disable=SC2046,SC2086
{
    seed framing whole-packets "" $dfu $quiet 3 $(packet 12) $(packet 28) $(packet 1) $opens 0 $closes
    seed framing packets-in-parts "" $rma $quiet 3 6 0 200 0 0 3 20 30 40 6 1 20 0 0 2 13 1 \
        6 1 20 0 0 1 12 $opens 0 $closes
    seed framing without-a-length "$(zeros 99)" $misc $quiet 3 $bytes 99 $(packet 4) $bytes 0 \
        $opens 0 0 0
    seed framing odd-lengths "" $dfu $quiet 11 $(for n in 0 1 2 3 4 5 7 8 9 10 11; do
        odd_length $n
    done) $opens 0 $closes
    seed framing small-reads "" 0 1 16 $quiet 2 $(packet 28) $(odd_length 3) $opens 0 $closes
    seed framing errors "" $dfu $sends 9 $again $again $(packet 12) $again $again $again $fails \
        $polls 0 $polls 1 $opens 0 $closes
    seed framing events "$(zeros 99)" $dfu $quiet 5 $event 0 28 $event 1 28 $event 2 20 $event 3 0 \
        $event 4 17 $opens 0 $closes
    seed framing hang-up-in-a-packet "" $rma $quiet 1 $(odd_length 6) $opens 1 $hangs_up $closes
    seed framing channel-away-and-back "" $dfu $sends 1 $(packet 12) $opens 3 \
        $reconnects 1 3 3 0 $hangs_up $reconnects 0 0 $closes
    seed framing failed-opens "" $dfu $deletes 0 1 3 3 0 0 $quiet 0 1 0 2 0 0 $closes
    seed framing no-thread "" $dfu $quiet 1 $(packet 12) 0 1 1 $reconnects 0 0 $closes
    seed framing writes "" $dfu $sends 0 $opens 3 2 3 2 9 3 31 0 4 60 2 1 4 0 5 2 1 0 0 9 $closes
    seed framing reader-ends-without-its-byte "" $dfu $quiet 0 $opens 0 1 1
}

# --- misc_data: two files, how the first write goes, how the open goes; then, packet by packet,
# the answer and how the next write goes ---
two_files="0 0 100 0 0 48" no_settings="0 0 100 1" plain=4
begin="$plain 0" lost=2 busy=3 in_parts=0
limit64="6 4" limit16="6 8" limit4096="6 7" refusal="0 0 1 0 0" silence=4
# shellcheck disable=SC2086
{
    good="$limit4096 $plain"
    seed misc_data two-files "" $two_files $begin $good $good $good $good $good $good $good
    good="$limit64 $plain"
    seed misc_data small-packets "" $no_settings $begin $good $good $good $good $good $good
    seed misc_data limit-of-the-header "" $no_settings $begin $limit16 $plain
    seed misc_data refused-three-times "" \
        $no_settings $begin $refusal $plain $refusal $plain $refusal $plain
    seed misc_data no-answer "" $two_files $begin $silence $plain $silence $plain $silence $plain
    seed misc_data lost-start-and-data "" $no_settings $lost 0 $limit64 $plain $good \
        $limit64 $plain $limit64 $lost $good $good
    seed misc_data writes-in-parts-and-late "" $no_settings $in_parts 6 0 0 \
        $limit64 $busy 99 $good $limit64 $in_parts 20 1 $limit64 $busy 109 $good
    seed misc_data answer-in-parts "$(zeros 20)$(words 64)" $no_settings $begin 3 12 12 $plain $good
    seed misc_data answer-too-long "$(zeros 20)$(words 64 1 2 3 4)" \
        $no_settings $begin 1 40 $plain $good
    seed misc_data hang-up-in-an-answer "$(zeros 8)" $no_settings $begin 5 1 8 $plain
    seed misc_data eagain-as-an-answer "" $no_settings $begin $good 2 2 $plain 2 2 $plain
}

# --- properties: four properties, six texts (4 for the usual one), the remoteproc instances, the
# reset property at last; then what the control device answers ---
one="0 1" none="0 0" two="0 2" usual="4 4 4 4 4 4"
instance="1 1 1 0 4 4 1" present="0" # remoteproc1, running
version_a="0 0 0 0 0 0 0 0" flash=0 host=1 fine=0
# shellcheck disable=SC2086
{
    seed properties update "" $two $none $none $none $usual $instance $present $one \
        $fine $fine $flash $fine $fine $fine $fine $fine
    seed properties no-update "" $one $none $none $none $usual $instance $present $none \
        $fine $fine $flash $flash $version_a $fine
    seed properties without-flash "" $none $none $none $none $usual $instance $present $one \
        $fine $fine $host $host 2 0 0 0 0 0 0 0 0
    seed properties another-platform "$(text 17)" $none $none $none $none \
        4 0 2 4 4 4 4 $instance $present $one
    seed properties unreadable "" $none $none $none $none 2 3 1 2 3 1 1 1 1 1 2 3 0 $present $one
    seed properties long-values "$(text " +1$(printf '%0*d' 84 0)x-9223372036854775809 1 2")" \
        1 87 1 20 1 2 1 2 $usual 1 1 0 40 1 4 4 0 $present 1 2
    seed properties odd-texts "$(text "$(printf '%025d' 1)WDPZ")" \
        $none $none $none $none 0 25 4 0 4 0 0 4 4 $instance $present $none
    seed properties no-instance "" $none $none $none $none $usual 0 1 $one
}

# --- rma: decisions as Service::step reads them; errors and calls by their places there ---
fail_call=0 fail_write=1 occupy=3 reconnect=5 fail_read=6 raw=8 request=9
connect() { echo "$request 0 0 $1 $2 $3 0"; }                # MEMORY_ID SECOND_ID SIZE
write() { echo "$request 1 $1 $1 1 $2 1 $3 $4"; }            # MEMORY_ID OFFSET SIZE BYTES_THAT_COME
read_block() { echo "$request 2 0 $1 1 $2 1 $3 0"; }         # MEMORY_ID OFFSET SIZE
disconnect="$request 5 0 1 1 0 1 0 0"
# shellcheck disable=SC2046,SC2086
{
    seed rma write-and-read "$(zeros 8)$(text "abcd")" \
        $(connect 1 2 64) $(write 1 8 4 4) $(read_block 1 0 80) $disconnect
    seed rma two-partitions "$(zeros 16)$(text "abcdefgh")" \
        $(connect 1 2 16) $(connect 2 2 16) $(write 1 0 4 4) $(write 2 12 4 4) $(read_block 2 0 16)
    seed rma writes-that-do-not-fit "$(zeros 8)$(text "abcdefgh")" \
        $(connect 1 2 8) $(write 1 5 4 4) $(write 1 0 5 4) $(write 1 9 0 0) $(write 0 0 1 1)
    seed rma offsets-above-the-file "$(zeros 8)$(words 0xffffffff 0xffffffff 0xfffffffc)" \
        $(connect 0 0 8) $request 2 0 0 0 1 4 0 $request 1 0 0 0 1 4 0 $request 2 0 0 0 1 4 0
    seed rma connect-in-39-bytes "$(words 0 39 0 0 1 1 8 0 0 0 0 0 0)00" $raw 39 $raw 11 $raw 0
    seed rma creation-fails "$(zeros 24)" $fail_call 1 0 0 0 0 0 $(connect 0 0 9) \
        $fail_write 5 1 1 0 $(connect 0 0 9) $(connect 0 0 9)
    seed rma name-is-not-synced "$(zeros 8)" $fail_call 0 0 0 0 0 1 $(connect 0 0 9)
    seed rma torn-write "$(zeros 8)$(text "abcdefgh")" \
        $(connect 0 0 16) $fail_write 0 3 2 0 0 0 $fail_write 1 0 0 2 0 0 0 $(write 0 4 8 8)
    seed rma fifo-in-its-place "$(zeros 8)$(text "ab")" \
        $occupy 0 0 0 0 $(connect 0 0 9) $(read_block 0 0 4) $(write 0 0 2 2)
    seed rma reads-that-fail "$(zeros 8)$(text "abcd")" \
        $(connect 0 0 9) $(write 0 0 4 4) $fail_read 1 0 0 0 0 $(read_block 0 0 9) \
        $fail_read 0 0 0 0 $(read_block 0 0 9) $(read_block 0 4 9)
    seed rma no-transport "$(zeros 8)$(text "ab")" \
        $(connect 0 0 9) $reconnect 1 $(write 0 0 2 2) $reconnect 0 $(read_block 0 0 9)
}

# --- uevent: messages, each a number of texts (how it begins, 5 for nothing; how much follows of the
# contents; whether a NUL ends it), whether it is filled up, what the receive gives ---
down="0 0 1" up="1 0 1" event="2" device="4 0 1" plain="0 0"
# shellcheck disable=SC2086
{
    seed uevent down-and-up "" 2 $device $down $plain 2 $device $up $plain
    seed uevent of-another-device "$(text "change@/devices/other")" 2 5 20 1 $down $plain
    seed uevent both-in-one-unterminated "" 3 $device $down 1 0 0 $plain
    seed uevent numbers "$(text " 4x-2147483649999999999999")" \
        2 $device $event 3 1 $plain 2 $device $event 11 1 $plain 2 $device $event 12 0 $plain
    seed uevent shorter-than-the-one-before "$(text "14 other bytes")" \
        2 5 14 0 $up $plain 1 3 0 1 $plain
    seed uevent fills-the-buffer "" 3 $device 5 0 1 $down 1 255 0 1 4 0 0 1 255 0
    seed uevent longer-than-the-buffer "" 2 $device $down 0 1 0 2 $device $down 0 1 2
    seed uevent fails "" 2 $device $down $plain 2 $device $up 0 2 1
}

# --- version_file: three versions of the running firmware, then the file ---
seed version_file current "$(text $'APPS.2BT.1DSP.3{\n  "apps_cochip": "APPS.2",\n')$(
    text $'  "btfw_cochip": "BT.1",\n  "dsp_cochip": "DSP.3&"\n}\n')" 6 4 5
seed version_file other-versions "$(text $'NOFLASH_PSRAM"apps_cochip": "A"\n"apps_cochip": "B"')" \
    13 0 0
seed version_file quotes-ampersands-equals \
    "$(text $'="a": "apps_cochip&"b": "c"="\n"": "&"": ""dsp_cochip=": "&"\n\n""btfw_cochip": "')" \
    0 0 0
