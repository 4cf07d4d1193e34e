#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The transcript of an update: one JSON object a line, its times in order, and in it the requests
# and answers of a download.
. "$(dirname "$0")/common.sh"
need_fuse
transcript=$scratch/transcript
simulate update --quiet --transcript "$transcript" >"$scratch/output" || fail "$(cat "$scratch/output")"

! grep -vE '^\{"time":[0-9.e-]+,"kind":"[a-z]+",.*\}$' "$transcript" || fail "not a line of JSON"
cut -d: -f2 "$transcript" | cut -d, -f1 | LC_ALL=C sort -g -c || fail "times go backwards"
for kind in ioctl packet property sysfs state; do
    grep -q "\"kind\":\"$kind\"" "$transcript" || fail "no line of kind $kind"
done
count() { grep -c "\"name\":\"$1\"" "$transcript"; }
for name in DFU_SPCL_OPERATION_REQ MG_UPDT_REQ IMG_INFO_RESP SESSION_END_RESP; do
    [ "$(count $name)" -gt 0 ] || fail "no $name"
done
[ "$(count IMG_OFFSET_REQ)" -gt 10 ] || fail "hardly any fragment"
[ "$(count IMG_OFFSET_REQ)" = "$(count IMG_OFFSET_RESP)" ] || fail "requests without answer"

status=0
simulate update --quiet --transcript /dev/full >"$scratch/output" 2>"$scratch/errors" || status=$?
[ "$status" = 2 ] && grep -q 'cannot write the transcript /dev/full' "$scratch/errors" &&
    ! grep -q PASS "$scratch/output" || fail "a transcript that cannot be written: exit $status"
