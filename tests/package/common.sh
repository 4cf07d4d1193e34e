# SPDX-License-Identifier: Apache-2.0
# Sourced by the tests of this folder.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

fail() {
    echo "$*" >&2
    exit 1
}

need() { # PROGRAM...
    local program
    for program in "$@"; do
        command -v "$program" >/dev/null || {
            echo "SKIPPED: $program is not installed"
            exit 77
        }
    done
}

scratch=$(mktemp -d /tmp/marlo-package-XXXXXX)
trap 'rm -rf "$scratch"' EXIT
