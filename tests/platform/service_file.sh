#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# systemd finds nothing wrong with the service file ($1), for the daemon just built ($2).
set -euo pipefail
if ! command -v systemd-analyze >/dev/null; then
    echo "SKIPPED: systemd-analyze is not installed"
    exit 77
fi
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
unit=$scratch/$(basename "$1")
sed "s#^ExecStart=.*#ExecStart=$2#" "$1" >"$unit"
# Its page of the manual need not be installed here.
findings=$(systemd-analyze verify --man=no "$unit" 2>&1) || { echo "$findings"; exit 1; }
# What it merely ignores it only mentions; so it does with the faults of other services.
! grep -F "$(basename "$unit")" <<<"$findings"
