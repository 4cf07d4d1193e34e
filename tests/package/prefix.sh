#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installed from the build tree $1 below a prefix of its own: all that the packages bring but what
# only Debian asks for, and a service that starts the daemon that was installed with it.
. "$(dirname "$0")/common.sh"

prefix=$scratch/prefix
cmake --install "$1" --prefix "$prefix" >/dev/null
(cd "$prefix" && find . -type f | cut -c 2- |
    sed "s#/lib/[^/]*/wireshark#/lib/ARCHITECTURE/wireshark#" | sort) |
    diff <(sed 's#^/usr##' "$here/contents.txt" | grep -ve /lintian/ -e /changelog | sort) -
grep -qx "ExecStart=$prefix/sbin/marlo_daemon" "$prefix/lib/systemd/system/marlo_daemon.service" ||
    fail "the service starts another program"
mkdir "$scratch/component"
cmake --install "$1" --prefix "$scratch/component" --component daemon >/dev/null
[ -x "$scratch/component/sbin/marlo_daemon" ] && [ ! -e "$scratch/component/bin" ] ||
    fail "the daemon cannot be installed alone"
