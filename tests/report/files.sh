#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The traces of real runs, and what comes of files that cannot be written.
. "$(dirname "$0")/../scenarios/common.sh"
need_fuse
read_trace=$(dirname "$0")/read_trace.py

run() { # STATUS ARGUMENTS...
    local expected=$1 status=0
    shift
    simulate "$@" --quiet >"$scratch/output" 2>"$scratch/errors" || status=$?
    [ "$status" = "$expected" ] ||
        fail "exit status $status of $*: $(cat "$scratch/output" "$scratch/errors")"
}

trace=$scratch/trace.json
run 0 update --trace "$trace" --fault hang-up-at-fragment@20:50
"$read_trace" "$trace" 'set boot mode HOST' erase 'flash.bin (1)' 'session ends' busy 'hung up' \
    'persist.vendor.zt_aon.dfu_update = 1' 'hang-up-at-fragment, occasion 20, value 50' \
    'Channel dfu from daemon bytes' 'Channel dfu from daemon bytes/s'
run 1 update --trace "$trace" --report "$scratch/report.html" --fault flash-load-fails@1
"$read_trace" "$trace" 'load fails: Input/output error'
# What else the reports show is looked at in a browser.
grep -q '"verdict":"fail","why":"expected load after soft reset; got load fails"' \
    "$scratch/report.html" || fail "the report does not tell why"
run 0 noflash --trace "$trace"
"$read_trace" "$trace" 'Bluetooth firmware' 'first half' 'second half' held
run 0 kill --times 3 --trace "$trace" --report "$scratch/report.html"
"$read_trace" "$trace" 'ended by signal 9'
grep -q '"name":"kill (seed 1)".*"verdict":"pass"' "$scratch/report.html" ||
    fail "the report of a trial"

# What cannot begin takes nothing away and leaves nothing behind.
for option in transcript report trace capture; do
    echo mine >"$scratch/mine"
    for file in "$scratch/mine" "$scratch/new"; do
        run 2 update --firmware "$scratch" "--$option" "$file"
    done
    [ "$(cat "$scratch/mine")" = mine ] || fail "--$option: a file is lost"
    [ ! -e "$scratch/new" ] || fail "--$option: an empty file is left"
done

for file in /dev/full "$scratch/none/file" "$scratch"; do
    run 2 absent --report "$file" --trace "$trace"
    grep -q "cannot write the report $file: .*; give --report another file" "$scratch/errors" ||
        fail "$file: $(cat "$scratch/errors")"
    ! grep PASS "$scratch/output" || fail "passed without its report"
done
"$read_trace" "$trace" 'ends with exit status 237'
run 2 current --trace "$trace" --report "$scratch/../${scratch##*/}/trace.json"
grep -q -- '--report and --trace' "$scratch/errors" || fail "$(cat "$scratch/errors")"
