#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Misc data of somebody's own: files of 0 bytes and of 1 byte, and one of some MiB in packets of an
# odd size beside a file that is not there.
. "$(dirname "$0")/common.sh"
need_fuse
files=$scratch/files
mkdir "$files"

pushed() { # OPTION...
    local status=0
    simulate noflash --quiet --bt-firmware "$files" --transcript "$scratch/transcript" "$@" \
        >"$scratch/output" || status=$?
    [ "$status" = 0 ] || fail "$*: exit status $status, $(cat "$scratch/output")"
}
sent() { # FIELDS: how many packets of misc data of the daemon carry them
    grep '"from daemon"' "$scratch/transcript" | grep '"channel":"misc"' | grep -c "$1" || true
}

: >"$files/mrbtfw20.mbn"
printf x >"$files/mrnv20.bin"
pushed --payload-limit 17
[ "$(sent '"name":"start"')" = 2 ] || fail "not two resources"
[ "$(sent '"name":"last data"')" = 2 ] || fail "not one data packet for each"

head -c 3000001 /dev/urandom >"$files/mrbtfw20.mbn"
rm "$files/mrnv20.bin"
pushed --payload-limit 1009
[ "$(sent '"name":"start"')" = 1 ] || fail "not one resource"
# 3000001 bytes are 3021 times 993 and 148 more.
[ "$(sent '"name":"data"')" = 3021 ] || fail "$(sent '"name":"data"') packets before the last one"
