#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Debian's small Soong makes of Android.bp a makefile with each library and the daemon, whose sources
# make finds. What it has no use for it says, and it leaves the tests out.
set -euo pipefail
command -v mini-soong >/dev/null || { echo "SKIPPED: mini-soong is not installed"; exit 77; }
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT

mini-soong Android.bp -o "$scratch/makefile" 2>"$scratch/warnings"
if grep -vE '^WARNING: (package|license|prebuilt_etc|cc_fuzz) not yet supported$' "$scratch/warnings"; then
    exit 1
fi
awk '$1 == "cc_library_static" { suffix = ".a" }
     $1 == "cc_binary" { suffix = "" }
     $1 == "name:" && kind { gsub("[\",]", "", $2); print $2 suffix }
     { kind = /^cc_(library_static|binary) / }' Android.bp | sort >"$scratch/expected"
sed -n 's/^build: //p' "$scratch/makefile" | tr ' ' '\n' | sort | diff "$scratch/expected" -
make -n -f "$scratch/makefile" build >"$scratch/commands"
grep -c '' "$scratch/expected"
