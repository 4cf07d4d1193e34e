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
expect_failure "a daemon that does nothing" \
    "nothing has moved on for 1 s (--timeout), waiting for get boot mode" \
    "$MARLO_SIM" update --daemon "$scratch/idle" --timeout 1
expect_failure "a daemon that ends" "got exit 3" "$MARLO_SIM" update --daemon "$scratch/ends"

# What the daemon seems to have done wrong is done behind its back.
meddling() { # LINE COMMAND...: once a line of the output contains LINE
    local line=$1 text
    shift
    mkfifo "$scratch/steps"
    simulate noflash --root "$scratch/root" --bt-firmware "$scratch" >"$scratch/steps" &
    while read -r text; do
        echo "$text"
        case $text in *"$line"*) "$@" ;; esac
    done <"$scratch/steps"
    rm "$scratch/steps"
    wait $!
}
backing=$scratch/root/data/vendor/aon
lengthen_backing_file() { printf x >>"$backing/$(ls "$backing" | head -n 1)"; }
change_misc_data() { printf other >"$scratch/mrnv20.bin"; }
printf right >"$scratch/mrnv20.bin"
expect_failure "a backing file too many" "one too many: stray" \
    meddling "remote memory: begins" touch "$backing/stray"
expect_failure "a backing file too long" "backing file [0-9]*: has [0-9]* bytes, not" \
    meddling "remote memory: ends" lengthen_backing_file
expect_failure "other misc data" "misc data, type 1: " \
    meddling "daemon: started" change_misc_data

status=0
simulate no-such-scenario >"$scratch/output" 2>&1 || status=$?
[ "$status" = 2 ] || fail "an unknown scenario gives exit status $status"
grep -q "no-such-scenario" "$scratch/output" || fail "the unknown scenario is not named"
