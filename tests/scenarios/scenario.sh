#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# One scenario, or one trial with its options: exit status 0, and exactly one line PASS, which is the last.
# Where MARLO_CAPTURES is a directory a capture is left there, for the tests of what reads them.
. "$(dirname "$0")/common.sh"
need_fuse
simulate "$@" ${MARLO_CAPTURES:+--capture "$MARLO_CAPTURES/$1.pcapng"} | tee "$scratch/output" || fail "exit status $?"
[[ $(tail -n 1 "$scratch/output") =~ ^PASS\ $1(\ \(.*\))?$ ]] || fail "the last line is not PASS $1"
[ "$(grep -c '^PASS\|^FAIL' "$scratch/output")" = 1 ] || fail "more than one verdict"
! grep -q '[[:cntrl:]]' "$scratch/output" || fail "control characters where there is no terminal"
