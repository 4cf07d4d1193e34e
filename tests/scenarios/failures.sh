#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What cannot be run, and what fails, says what was tried, the value or the limit, and what to do
# next; and whatever is written to a pipe is plain text that ends with the verdict.
. "$(dirname "$0")/common.sh"
need_fuse

# The answer's last line holds all of TEXTS.
answers() { # STATUS TEXTS... -- ARGUMENTS...
    local wanted=$1 texts=() status=0 text
    shift
    while [ "$1" != -- ]; do
        texts+=("$1")
        shift
    done
    shift
    "$MARLO_SIM" "$@" >"$scratch/answer" 2>&1 || status=$?
    [ "$status" = "$wanted" ] || fail "$*: exit status $status: $(cat "$scratch/answer")"
    for text in "${texts[@]}"; do
        grep -qF -- "$text" "$scratch/answer" || fail "$*: no '$text' in: $(cat "$scratch/answer")"
    done
    if LC_ALL=C grep -q '[[:cntrl:]]' "$scratch/answer"; then
        fail "$*: control characters in: $(cat -v "$scratch/answer")"
    fi
}

mkdir "$scratch/full" "$scratch/firmware"
touch "$scratch/full/mine"
truncate -s $((5 * 1024 * 1024)) "$scratch/firmware/partition_table.xml"

# The daemon is the one under test unless a case says otherwise.
own=(--daemon "$MARLO_DAEMON")

# What was tried, the value or the limit, the next step.
answers 2 "root $scratch/full" "not empty" "--root names another" -- update --root "$scratch/full" "${own[@]}"
answers 2 "--firmware $scratch/firmware" "5242880 bytes, more than the limit of 4194304" \
    "marlo-fw inspect $scratch/firmware" -- update --firmware "$scratch/firmware" "${own[@]}"
answers 2 "execute the daemon" "$scratch/none: No such file" "--daemon names" -- \
    --daemon "$scratch/none"
answers 2 "socket" "107 characters at most" "a shorter --root" -- \
    update --root "$scratch/$(printf 'x%.0s' {1..150})" "${own[@]}"
answers 2 "--fragment" "0" -- update --fragment 0
answers 2 "no scenario nothing" "--list shows" -- nothing
answers 2 "no scenario  [31mred" "--list shows" -- $'\e[31mred'
answers 2 "--firmware" "/ [31mred" -- update --firmware $'/\e[31mred'
answers 2 'no fault "nothing"' "--list-faults shows" -- update --fault nothing
answers 1 "expected load after soft reset; got load fails" "--report FILE.html" "FAIL update: " -- \
    update --fault flash-load-fails@1 --flash-rate 1000000 "${own[@]}"

status=0
"$MARLO_SIM" absent "${own[@]}" --quiet >/dev/full 2>"$scratch/answer" || status=$?
[ "$status" = 2 ] || fail "standard output is full: exit status $status"
grep -q 'verdict cannot be written to standard output' "$scratch/answer" ||
    fail "standard output is full: $(cat "$scratch/answer")"

# A pipe's last line is the verdict, and the only one.
answers 0 "progress: images" "PASS update" -- update --flash-rate 500000 "${own[@]}"
[ "$(tail -n 1 "$scratch/answer")" = "PASS update" ] || fail "ends with $(tail -n 1 "$scratch/answer")"

# On a terminal NO_COLOR takes the colours away, and the picture stays.
on_terminal() { # [NAME=VALUE...]
    env -u NO_COLOR TERM=xterm SHELL=/bin/sh "$@" script -qec "'$MARLO_SIM' update --daemon '$MARLO_DAEMON'" /dev/null \
        >"$scratch/picture" </dev/null
}
colour=$'\e\\[[0-9;]*m'
on_terminal
grep -q "$colour" "$scratch/picture" || fail "no colours on a terminal"
on_terminal NO_COLOR=1
! grep -q "$colour" "$scratch/picture" || fail "colours in spite of NO_COLOR"
grep -q 'all images' "$scratch/picture" || fail "nothing is drawn"
