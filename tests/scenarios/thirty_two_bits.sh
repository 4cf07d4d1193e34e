#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# In a build of 32 bits: the daemon that all scenarios run is one of 32 bits, and hands plain
# pointers over, to wherever the system put the data: a 64-bit one has to wish for low addresses.
. "$(dirname "$0")/common.sh"
need_fuse
class=$(od -An -tu1 -j 4 -N 1 "$MARLO_DAEMON")
[ "$class" -eq 1 ] || fail "$MARLO_DAEMON is no 32-bit program"

# It passes only if the word is the address of the reset's data in the daemon's memory.
simulate reset --quiet --transcript "$scratch/transcript" || fail "exit status $?"
address=$(sed -n 's/.*"command":"reset".*"value":\([0-9]*\).*/\1/p' "$scratch/transcript")
echo "the reset's data was at $address"
(((address & 0xFF000000) != 0x10000000 && address > 0)) || fail "no plain pointer: $address"
