#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Android.bp is as Android's own formatter leaves it, lists in order.
set -euo pipefail
command -v bpfmt >/dev/null || { echo "SKIPPED: bpfmt is not installed"; exit 77; }
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
difference=$(bpfmt -s -d Android.bp)
[ -z "$difference" ] || { echo "$difference"; exit 1; }
