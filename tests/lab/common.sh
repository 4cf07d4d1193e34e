# SPDX-License-Identifier: Apache-2.0
# Sourced by the tests of this folder.
. "$(dirname "${BASH_SOURCE[0]}")/../scenarios/common.sh"

# All that the simulator makes is made here.
mkdir "$scratch/made"
export TMPDIR=$scratch/made

nothing_is_left() {
    ! grep " $scratch/" /proc/self/mounts || fail "mounts are left behind"
    [ -z "$(ls -A "$scratch/made")" ] || fail "left over: $(ls -A "$scratch/made")"
}

children_of() { # PROCESS
    cat "/proc/$1/task/$1/children"
}

daemon_of() { # DEVICE
    children_of "$1" | tr -d ' '
}

all_have_daemons() { # DEVICE...
    local device
    for device in "$@"; do
        [ -n "$(daemon_of "$device")" ] || return 1
    done
}

# Starts it in the background, and goes on when all devices have a daemon, and some download: `lab` is
# its process, `devices` are theirs, in order, `output` is what it prints from then on.
start_lab() { # OPTION...
    local line
    rm -f "$scratch/pipe"
    mkfifo "$scratch/pipe"
    "$MARLO_SIM" update --daemon "$MARLO_DAEMON" "$@" >"$scratch/pipe" 2>"$scratch/errors" &
    lab=$!
    exec {output}<"$scratch/pipe"
    while read -r line <&"$output"; do
        [[ $line = *"progress: "[1-9]* ]] || continue
        read -ra devices <<<"$(children_of "$lab")"
        if all_have_daemons "${devices[@]}"; then break; fi
    done
}

# Its verdict is in `status`, the rest of its output in $scratch/output.
await_lab() {
    timeout 60 cat <&"$output" >"$scratch/output" || fail "it or a device of it goes on"
    status=0
    wait "$lab" 2>/dev/null || status=$?
    exec {output}<&-
}
