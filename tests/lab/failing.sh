#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Devices that fail, or are killed, are named with the reason; what cannot be run is said once; what
# is about one device is refused.
. "$(dirname "$0")/common.sh"

refused() { # TEXT OPTION...
    local text=$1 status=0
    shift
    "$MARLO_SIM" "$@" >"$scratch/answer" 2>&1 || status=$?
    [ "$status" = 2 ] || fail "$*: exit status $status"
    grep -qF -- "$text" "$scratch/answer" || fail "$*: $(cat "$scratch/answer")"
}
refused '--devices: Value 0 not in range 1 to 1000' --devices 0
refused '--devices: Value 1001 not in range' --devices 1001
refused '--devices 3: not with --transcript' --devices 3 --transcript "$scratch/file"
refused '--devices 3: not with --no-daemon' --devices 3 --no-daemon
refused '--devices 3: not with the trial chaos' --devices 3 chaos
[ ! -e "$scratch/file" ] || fail "a refused transcript was begun"

need_fuse
refused 'execute the daemon /nowhere' --devices 3 --daemon /nowhere
[ "$(grep -c 'execute the daemon' "$scratch/answer")" = 1 ] || fail "said more than once"
# A sanitizer needs files itself to look at an object: what it makes of too few tells nothing.
[ "$1" -lt 50 ] || (ulimit -n 30 && refused 'cannot make a pipe: Too many open files (`ulimit -n` is 30' \
    --devices 60 --daemon "$MARLO_DAEMON")
nothing_is_left

# All of them, by a fault.
status=0
simulate update --devices 3 --fault flash-load-fails@1 --fault rma-crc-wrong \
    >"$scratch/output" 2>"$scratch/errors" || status=$?
[ "$status" = 1 ] || fail "a failing load: exit status $status"
[ "$(tail -n 1 "$scratch/output")" = "FAIL update on 3 devices: 3 failed: 1-3" ] ||
    fail "$(tail -n 1 "$scratch/output")"
[ "$(grep -c 'device . failed after .*: expected load after soft reset; got load fails' \
    "$scratch/output")" = 3 ] || fail "$(cat "$scratch/output")"
grep -q 'MarloDaemon\|marlo_' "$scratch/output" || fail "the daemon's log is not shown"
grep -q 'rma-crc-wrong found no occasion (3 devices)' "$scratch/errors" || fail "$(cat "$scratch/errors")"

# One is killed, and the daemon of another: the third one passes. Nothing of them stays.
root=$scratch/root
start_lab --devices 3 --root "$root" --flash-rate 200000
kill -9 "${devices[0]}" "$(daemon_of "${devices[1]}")"
await_lab
[ "$status" = 1 ] || fail "killed devices: exit status $status"
grep -q 'device 1 failed after .*: its virtual co-processor was ended by SIGKILL' "$scratch/output" ||
    fail "$(cat "$scratch/output")"
grep -q 'device 2 failed after .*: .*got signal 9' "$scratch/output" || fail "$(cat "$scratch/output")"
[ "$(tail -n 1 "$scratch/output")" = "FAIL update on 3 devices: 2 failed: 1-2" ] ||
    fail "$(tail -n 1 "$scratch/output")"
[ ! -e "$root" ] || fail "left over: $(find "$root")"
nothing_is_left

simulate absent --devices 2 --root "$root" --keep --quiet >"$scratch/output" || fail "--keep failed"
[ "$(cat "$scratch/output")" = "PASS absent on 2 devices" ] || fail "$(cat "$scratch/output")"
[ "$(ls "$root")" = $'1\n2' ] && [ -d "$root/2/vendor" ] || fail "not kept: $(find "$root")"
