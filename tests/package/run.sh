#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The packages in the directory $1 work wherever they are unpacked: marlo-sim finds the daemon that
# came with it, and that passes; Wireshark shows what was captured.
. "$(dirname "$0")/common.sh"
need dpkg-deb
need_packages "$1"

for package in "$1"/*.deb; do dpkg-deb --extract "$package" "$scratch/root"; done
version=$(dpkg-deb --field "$1"/marlo-tools_*.deb Version)
for program in marlo-sim marlo-fw; do
    [ "$("$scratch/root/usr/bin/$program" --version)" = "$program ${version%-*}" ] ||
        fail "$program is of another version than its package"
done

status=0
answer=$("$scratch/root/usr/bin/marlo-sim" update --capture "$scratch/capture" 2>&1) || status=$?
if [ "$status" = 2 ] && grep -q 'cannot mount .* with FUSE' <<<"$answer"; then
    echo "SKIPPED: $answer"
    exit 77
fi
[ "$(tail -n 1 <<<"$answer")" = "PASS update" ] || fail "$answer"
rm "$scratch/root/usr/sbin/marlo_daemon"
! "$scratch/root/usr/bin/marlo-sim" update >/dev/null 2>&1 || fail "another daemon ran"

# Wireshark's folder is where it was built to be: there it finds the packages' files.
need tshark unshare
plugins=$(cd "$scratch/root" && echo usr/lib/*/wireshark/plugins)
shown=$(unshare --map-root-user --mount sh -c 'mount --bind "$1" "$2" && tshark -r "$3" 2>&1' \
    sh "$scratch/root/$plugins" "/$plugins" "$scratch/capture") || {
    echo "SKIPPED: tshark cannot be shown other plugins: $shown"
    exit 77
}
grep -q 'get boot mode: FLASH' <<<"$shown" ||
    fail "Wireshark does not know what it sees: $(head -n 5 <<<"$shown")"
