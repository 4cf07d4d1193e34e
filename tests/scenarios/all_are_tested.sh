#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The scenarios that are tested ($1) are those that there are.
. "$(dirname "$0")/common.sh"
listed=$("$MARLO_SIM" --list | awk '{ print $1 }' | sort)
tested=$(tr ' ' '\n' <<<"$1" | sort)
diff <(echo "$tested") <(echo "$listed") || fail "tested (<) and listed (>) scenarios differ"
