#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The daemon's rooms include and call nothing that an Android vendor tree lacks: what they include
# is in system_headers.txt, what the daemon ($1) imports is in system_functions.txt. Without $1 only
# the headers are looked at.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
cd "$here/../.."
status=0

allow_only() { # LIST WHAT NAMES
    local missing
    missing=$(LC_ALL=C comm -23 <(LC_ALL=C sort -u <<<"$3") \
        <(sed -e '/^#/d' -e 's/ .*//' "$here/$1" | LC_ALL=C sort))
    [ -z "$missing" ] && return
    printf '%s, but not in tests/android/%s:\n%s\n' "$2" "$1" "$missing"
    status=1
}

rooms=(daemon comhandler glink fwupdater rma wire platform)
allow_only system_headers.txt Included "$(
    grep -rhoE --include='*.cpp' --include='*.h' --exclude-dir=scripted '^ *# *include <[^>]+>' \
        "${rooms[@]}" | sed 's/.*<\(.*\)>/\1/'
)"

# Names as the sources have them: without version, without the compiler's variants (checked, 64-bit,
# clang's comparison for equality), without what the C++ library, start-up code and the division of
# 64 bits in 32 bring.
imported_functions() {
    nm -D --undefined-only "$1" | awk '$1 == "U" { print $2 }' |
        grep -vE '^_Z|@(GLIBCXX|CXXABI|GCC)_|^__(cxa|libc|errno|stack_chk|aeabi)_|^__u?divdi3@' |
        sed -E -e 's/@.*//' -e 's/^__isoc99_//' -e 's/^bcmp$/memcmp/' -e 's/^__(.*)_chk$/\1/' \
            -e 's/^(f?stat|open|pread|pwrite|mmap|readdir)64$/\1/'
}
if [ $# -gt 0 ]; then
    imported=$(imported_functions "$1")
    allow_only system_functions.txt Imported "$imported"
fi
exit "$status"
