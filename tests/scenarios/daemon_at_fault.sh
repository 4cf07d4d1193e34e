#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# A daemon that does the wrong thing, or nothing, fails: the verdict cannot only be PASS.
. "$(dirname "$0")/common.sh"
need_fuse

expect_failure() { # WHAT TEXT COMMAND...
    local what=$1 text=$2 status=0
    shift 2
    "$@" >"$scratch/output" 2>&1 || status=$?
    [ "$status" = 1 ] || fail "$what: exit status $status, $(cat "$scratch/output")"
    tail -n 1 "$scratch/output" | grep -q "^FAIL .*$text" ||
        fail "$what: $(tail -n 1 "$scratch/output")"
}

printf '#!/bin/sh\nexec sleep 1000\n' >"$scratch/idle"
printf '#!/bin/sh\nexit 3\n' >"$scratch/ends"
chmod +x "$scratch/idle" "$scratch/ends"
expect_failure "a daemon that does nothing" "" \
    "$MARLO_SIM" update --daemon "$scratch/idle" --timeout 1
expect_failure "a daemon that ends" "3" "$MARLO_SIM" update --daemon "$scratch/ends"

status=0
simulate no-such-scenario >"$scratch/output" 2>&1 || status=$?
[ "$status" = 2 ] || fail "an unknown scenario gives exit status $status"
grep -q "no-such-scenario" "$scratch/output" || fail "the unknown scenario is not named"
