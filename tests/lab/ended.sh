#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Whoever ends it in the middle, nothing stays mounted, on disk, or running: asked to end it cleans
# up itself, killed its devices do. They have its output, which is at an end only when they are.
. "$(dirname "$0")/common.sh"
need_fuse

# SIGNAL STATUS: what it ends with.
ended_by() {
    local daemons=() device process
    start_lab --devices 8 --flash-rate 5000
    [ ${#devices[@]} = 8 ] || fail "not eight devices: ${devices[*]}"
    for device in "${devices[@]}"; do daemons+=("$(daemon_of "$device")"); done
    kill -s "$1" "$lab"
    await_lab
    [ "$status" = "$2" ] || fail "SIG$1: exit status $status"
    for process in "${daemons[@]}"; do
        ! grep -s '^State:.[^ZX]' "/proc/$process/status" || fail "SIG$1: a daemon still runs"
    done
    nothing_is_left
}

for signal in INT TERM; do
    ended_by $signal $((128 + $(kill -l $signal)))
    [ "$(tail -n 1 "$scratch/output")" = "FAIL update on 8 devices: interrupted" ] ||
        fail "SIG$signal: $(cat "$scratch/output")"
done
ended_by KILL 137
