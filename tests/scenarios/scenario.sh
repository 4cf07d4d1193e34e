#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# One scenario, or one trial with its options: exit status 0, and exactly one line PASS, which is the last.
. "$(dirname "$0")/common.sh"
need_fuse
simulate "$@" | tee "$scratch/output" || fail "exit status $?"
[[ $(tail -n 1 "$scratch/output") =~ ^PASS\ $1(\ \(.*\))?$ ]] || fail "the last line is not PASS $1"
[ "$(grep -c '^PASS\|^FAIL' "$scratch/output")" = 1 ] || fail "more than one verdict"
! grep -q '[[:cntrl:]]' "$scratch/output" || fail "control characters where there is no terminal"
