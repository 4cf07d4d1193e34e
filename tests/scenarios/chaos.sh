#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# A co-processor out of order for a few episodes, in one of which the daemon has to end; one without
# flash, too.
. "$(dirname "$0")/common.sh"
need_fuse

chaos() { # SEED EPISODES TEXT
    simulate chaos --seed "$1" --episodes "$2" \
        ${MARLO_CAPTURES:+--capture "$MARLO_CAPTURES/chaos.pcapng"} | tee "$scratch/output" ||
        fail "seed $1: exit status $?"
    [ "$(tail -n 1 "$scratch/output")" = "PASS chaos (seed $1)" ] || fail "seed $1: no PASS"
    grep -q "$3" "$scratch/output" || fail "seed $1: no line with '$3'"
}
chaos 16 3 "rma: answer: "
chaos 5 3 "3 episodes, and the daemon ended [1-9][0-9]* times as it had to"
