#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Faults from the command line: one that a passing scenario fails by, one that it survives, and
# texts that ask for none.
. "$(dirname "$0")/common.sh"

refused() { # TEXT OPTION...
    local text=$1 status=0
    shift
    simulate "$@" >"$scratch/output" 2>&1 || status=$?
    [ "$status" = 2 ] || fail "$*: exit status $status"
    grep -qF -- "$text" "$scratch/output" || fail "$*: $(cat "$scratch/output")"
}
refused 'no fault "eraser"' --fault eraser update
refused 'erase-fails: the occasion must be a number from 1 to 4294967295, not "0"' \
    --fault load-fails --fault erase-fails@0
refused 'hang-up-at-info: ms until the channel is back must be' --fault hang-up-at-info:soon
refused '--payload-limit' --payload-limit 16
refused '--bt-firmware' --bt-firmware "$scratch/nowhere"
refused 'neither mrbtfw20.mbn nor' noflash --bt-firmware "$scratch"
refused 'not expected' chaos --fault erase-fails
refused '--times' kill --times 0
refused 'flash.bin' no-flash-image --firmware "$scratch"
simulate --list-faults >"$scratch/faults" || fail "--list-faults: exit status $?"
grep -q '^erase-fails .*VALUE: response code (1)$' "$scratch/faults" || fail "not listed: erase-fails"

need_fuse
refused 'cannot execute the daemon /nowhere' kill --daemon /nowhere
status=0
simulate update --quiet --fault flash-load-fails@1 --fault load-fails@2:16 >"$scratch/output" ||
    status=$?
[ "$status" = 1 ] || fail "a failing load: exit status $status"
[ "$(cat "$scratch/output")" = \
    "FAIL update: expected load after soft reset; got load fails" ] || fail "$(cat "$scratch/output")"

# The download goes on from where the fragment was lost; the erase failed and is made up for.
status=0
simulate --quiet --transcript "$scratch/transcript" --fault hang-up-at-fragment@20:500 \
    --fault erase-fails@1 --fault rma-crc-wrong update >"$scratch/output" 2>"$scratch/notes" ||
    status=$?
[ "$status" = 0 ] || fail "an update with a hang-up: $(cat "$scratch/output")"
grep -q 'rma-crc-wrong found no occasion' "$scratch/notes" || fail "$(cat "$scratch/notes")"
for fault in erase-fails hang-up-at-fragment; do
    [ "$(grep -c "\"kind\":\"fault\".*\"$fault\"" "$scratch/transcript")" = 1 ] ||
        fail "$fault did not strike once"
done
