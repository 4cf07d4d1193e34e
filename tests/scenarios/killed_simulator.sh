#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# A simulator that is killed in the middle of a download takes the daemon with it and leaves nothing
# that the next run trips over.
. "$(dirname "$0")/common.sh"
need_fuse
root=$scratch/root
mkfifo "$scratch/output"
"$MARLO_SIM" update --daemon "$MARLO_DAEMON" --root "$root" --flash-rate 1000 >"$scratch/output" &
simulator=$!
while read -r line; do
    case $line in *"download: erase"*) break ;; esac
done <"$scratch/output"
daemon=$(tr -d ' ' <"/proc/$simulator/task/$simulator/children")
[ -n "$daemon" ] || fail "no daemon runs"
kill -9 "$simulator"
wait "$simulator" 2>/dev/null || true

simulate absent --root "$root" --quiet || fail "the next run failed"
! grep -s '^State:.[^ZX]' "/proc/$daemon/status" || fail "the daemon outlived the simulator"
! grep " $root" /proc/self/mounts || fail "mounts are left behind"
[ -z "$(ls -A "$root" 2>/dev/null)" ] || fail "left over: $(ls -A "$root")"
