#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# killed_session.sh MARLO_SIM DAEMON: a marlo-sim that was killed in the middle of a download takes
# the daemon with it and leaves nothing that the next one trips over.
set -eu

if ! [ -r /dev/fuse ] || ! [ -w /dev/fuse ]; then
    echo "skipped: /dev/fuse cannot be opened"
    exit 77
fi

work=$(mktemp -d)
root=$work/root
trap 'rm -rf "$work"' EXIT
mkfifo "$work/output"

"$1" update --daemon "$2" --root "$root" --flash-rate 1000 > "$work/output" &
session=$!
while read -r line; do
    case $line in *"download: erase"*) break ;; esac
done < "$work/output"
daemon=$(cat "/proc/$session/task/$session/children")
kill -9 "$session"
wait "$session" 2> /dev/null || true

"$1" absent --daemon "$2" --root "$root" --quiet
for process in $daemon; do
    state=$(sed -n 's/^State:[[:space:]]*\(.\).*/\1/p' "/proc/$process/status" 2> /dev/null || true)
    case $state in "" | Z | X) ;; *) echo "the daemon $process still runs"; exit 1 ;; esac
done
if grep " $root" /proc/self/mounts; then
    echo "still mounted"
    exit 1
fi
if [ -n "$(ls -A "$root" 2> /dev/null)" ]; then
    echo "left over: $(ls -A "$root")"
    exit 1
fi
