#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# So many devices at once are updated: a line each, plain text, progress that never goes back, and
# one verdict.
. "$(dirname "$0")/common.sh"
need_fuse
count=$1
# Slow enough for more than a word of it on any machine.
simulate update --devices "$count" --flash-rate 500000 >"$scratch/output" 2>"$scratch/errors" || fail "$(cat "$scratch"/{output,errors})"
[ "$(tail -n 1 "$scratch/output")" = "PASS update on $count devices" ] || fail "$(tail -n 1 "$scratch/output")"
[ "$(grep -c '^PASS\|^FAIL' "$scratch/output")" = 1 ] || fail "more than one verdict"
if LC_ALL=C grep '[^[:print:]]' "$scratch/output"; then fail "more than plain text"; fi
[ ! -s "$scratch/errors" ] || fail "$(cat "$scratch/errors")"

diff <(seq "$count") <(sed -nE \
    's/^ *[0-9.]+  device ([0-9]+) passed in [0-9.]+ s; CPU .* s \(daemon\).* memory [0-9].*/\1/p' \
    "$scratch/output" | sort -n) || fail "not a line for each device"
tail -n 2 "$scratch/output" | grep -q "^$count devices: $count passed, 0 failed; .* s of CPU" ||
    fail "no summary: $(tail -n 2 "$scratch/output")"

progress=$(sed -nE 's/.*progress: ([0-9]+)% moved, .*; ([0-9]+) of .*/\1 \2/p' "$scratch/output")
[ "$(wc -l <<<"$progress")" -gt 1 ] || fail "hardly any progress"
cut -d' ' -f1 <<<"$progress" | sort -n -c || fail "the percentage goes back"
cut -d' ' -f2 <<<"$progress" | sort -n -c || fail "the devices that ended become fewer"
nothing_is_left

# On a terminal it is a picture, cut to its size.
TERM=xterm SHELL=/bin/sh script -qec "stty rows 10 cols 60; '$MARLO_SIM' absent --devices 20 --daemon '$MARLO_DAEMON'" /dev/null \
    >"$scratch/picture" </dev/null || fail "on a terminal: $(cat "$scratch/picture")"
grep -q 'and 16 more' "$scratch/picture" || fail "not cut: $(cat -v "$scratch/picture")"
grep -q '^PASS absent on 20 devices' <(tr -d '\r' <"$scratch/picture" | sed 's/\x1b\[[?0-9]*[a-zA-Z]//g') ||
    fail "no verdict: $(cat -v "$scratch/picture")"
