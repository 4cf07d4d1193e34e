# SPDX-License-Identifier: Apache-2.0
# Sourced by the tests of this folder.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

fail() {
    echo "$*" >&2
    exit 1
}

# Programs of the language that the caller has chosen warn where it is not installed; what the system's
# owner uses need not be in everybody's path.
export LC_ALL=C.UTF-8 PATH=$PATH:/usr/sbin:/sbin

need() { # PROGRAM...
    local program
    for program in "$@"; do
        command -v "$program" >/dev/null || {
            echo "SKIPPED: $program is not installed"
            exit 77
        }
    done
}

need_packages() { # DIRECTORY
    [ -n "$(find "$1" -name '*.deb' 2>/dev/null)" ] || {
        echo "SKIPPED: nothing could be packed"
        exit 77
    }
}

scratch=$(mktemp -d /tmp/marlo-package-XXXXXX)
trap 'rm -rf "$scratch"' EXIT
