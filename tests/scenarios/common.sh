# Sourced by the tests of this folder: skips them where there is no FUSE.
set -euo pipefail

if [ ! -c /dev/fuse ] || [ ! -w /dev/fuse ]; then
    echo "skipped: /dev/fuse is missing or cannot be opened (load the fuse module, install fuse3)"
    exit 77
fi

scratch=$(mktemp -d /tmp/marlo-scenario-XXXXXX)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "$*" >&2
    exit 1
}

simulate() {
    "$MARLO_SIM" --daemon "$MARLO_DAEMON" "$@"
}
