#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Packs the build tree ($1) into the directory $2, where the other tests look for the packages; and
# once more at another time, with another mask and language: what is in the packages is the same,
# to the byte.
. "$(dirname "$0")/common.sh"
need cpack dpkg-shlibdeps dpkg-parsechangelog file

pack() { # DIRECTORY
    rm -rf "$1"
    cpack --config "$build/CPackConfig.cmake" -B "$1" >"$scratch/log" 2>&1 ||
        fail "$(cat "$scratch/log")"
    ! grep -i warning "$scratch/log" || fail "cpack warns"
    rm -r "$1/_CPack_Packages"
}

build=$1
pack "$2"
(umask 077 && TZ=Asia/Tokyo LC_ALL=C pack "$scratch/again")
for package in "$2"/*.deb; do
    for part in --ctrl-tarfile --fsys-tarfile; do
        cmp <(dpkg-deb "$part" "$package") <(dpkg-deb "$part" "$scratch/again/${package##*/}") ||
            fail "${package##*/} differs when it is packed again"
    done
done
