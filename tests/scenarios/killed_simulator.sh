#!/usr/bin/env bash
# A simulator that is killed in the middle of a download leaves nothing that the next run trips
# over: the daemon dies with it, and the same root can be used again.
. "$(dirname "$0")/common.sh"
root=$scratch/root
"$MARLO_SIM" update --daemon "$MARLO_DAEMON" --root "$root" --flash-rate 50000 \
    >"$scratch/output" 2>&1 &
simulator=$!
# The download is under way once its first image is announced.
until grep -q 'download: image' "$scratch/output"; do
    kill -0 "$simulator" 2>/dev/null || fail "ended early: $(cat "$scratch/output")"
    sleep 0.05
done
daemon=$(tr -d ' ' <"/proc/$simulator/task/$simulator/children")
[ -n "$daemon" ] || fail "no daemon runs"
kill -9 "$simulator"
wait "$simulator" 2>/dev/null || true
for _ in $(seq 100); do
    [ -e "/proc/$daemon" ] || break
    sleep 0.05
done
[ ! -e "/proc/$daemon" ] || grep -q '^State:.Z' "/proc/$daemon/status" ||
    fail "the daemon outlived the simulator"
simulate update --quiet --root "$root" || fail "the next run failed"
! grep -q "$root" /proc/self/mounts || fail "mounts are left behind"
