#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What makes a fault in an optimised program harder to use, for each program given: it can be loaded
# at any address, without changing its code; what the loader has filled in is read-only afterwards;
# nothing is both written and executed; stack and buffers are checked, in each of the sources that
# the first argument (compile_commands.json) tells of. Prints what is missing.
set -euo pipefail
status=0

missing() { # WHAT
    echo "$program: $1"
    status=1
}

shows() { # PATTERN, in what readelf says of the program
    grep -qE "$1" <<<"$facts"
}

for flag in -fPIE -fstack-protector-strong -D_FORTIFY_SOURCE=2; do
    if without=$(grep '"command":' "$1" | grep -ve " $flag " | grep -o '[^ ]*"' | grep -F .cpp); then
        printf '%s: not built with %s\n' "$1" "$flag" "$without"
        status=1
    fi
done
shift

for program in "$@"; do
    facts=$(readelf --wide --file-header --program-headers --dynamic --dyn-syms "$program")
    shows 'Type: +DYN' && shows 'FLAGS_1.*\bPIE\b' || missing "no position-independent executable"
    shows 'GNU_RELRO' || missing "no RELRO segment"
    shows 'BIND_NOW|FLAGS_1.*\bNOW\b' || missing "symbols are bound late: RELRO is partial"
    ! shows 'TEXTREL' || missing "text relocations"
    shows 'GNU_STACK.* RW ' || missing "the stack is executable"
    ! shows 'LOAD.* RWE ' || missing "a segment is both written and executed"
    shows 'UND __stack_chk_(fail|guard)' || missing "no stack protector"
    shows 'UND __[a-z]+_chk\b' || missing "nothing is checked by _FORTIFY_SOURCE"
done
exit "$status"
