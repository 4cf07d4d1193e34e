#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Nobody finds a fault with the packages in the directory $1, nor with the pages of the manual.
. "$(dirname "$0")/common.sh"
need lintian mandoc man
need_packages "$1"

findings=$(lintian --allow-root --fail-on error,warning --info "$1"/*.deb 2>&1) || fail "$findings"
[ -z "$findings" ] || fail "$findings"
for page in "$here"/../../tools/man/*; do
    findings=$(mandoc -T lint -W warning "$page") || fail "$findings"
    findings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -Tutf8 -l "$page" 2>&1 >/dev/null)
    [ -z "$findings" ] || fail "$page: $findings"
done
