# SPDX-License-Identifier: Apache-2.0
# Sourced by the tests of this folder. MARLO_SIM and MARLO_DAEMON are the programs under test.
set -euo pipefail

fail() {
    echo "$*" >&2
    exit 1
}

simulate() {
    "$MARLO_SIM" --daemon "$MARLO_DAEMON" "$@"
}

# Skips the test where nothing can be mounted: FUSE is missing, or the container forbids it.
need_fuse() {
    local status=0 answer
    answer=$(simulate absent --quiet 2>&1) || status=$?
    if [ "$status" = 2 ] && grep -q 'cannot mount .* with FUSE' <<<"$answer"; then
        echo "skipped: $answer"
        exit 77
    fi
}

scratch=$(mktemp -d /tmp/marlo-scenario-XXXXXX)
trap 'rm -rf "$scratch"' EXIT
