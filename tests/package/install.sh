#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The packages in the directory $1 bring what they are to bring, make the service's user and
# directories, may be installed once more, and leave nothing behind when they are purged.
. "$(dirname "$0")/common.sh"
need dpkg systemd-sysusers systemd-tmpfiles systemd-analyze deb-systemd-helper
need_packages "$1"
if [ "$(id -u)" != 0 ]; then
    need fakeroot
    exec fakeroot -- "$0" "$@"
fi

root=$scratch/root
# What every system has. The backups of the lists of users are not the packages'.
mkdir -p "$root"/{usr/bin,run,tmp,etc/systemd/system,var/lib/systemd} \
    "$root"/var/lib/dpkg/{info,updates,triggers}
touch "$root"/etc/{passwd,group,shadow,gshadow,.pwd.lock} \
    "$root"/etc/{passwd-,group-,shadow-,gshadow-} "$root/var/lib/dpkg/status"
cp "$root/etc/passwd" "$root/usr/bin/sh" # dpkg takes away what it leaves empty

# In a root where there is nothing to run, the scripts run outside and are told of it.
install_packages() {
    dpkg --root="$root" --log=/dev/null --path-include='*' --force-depends \
        --force-script-chrootless --force-unsafe-io "$@" >"$scratch/log" 2>&1 ||
        fail "$(cat "$scratch/log")"
}

state() {
    (
        cd "$root"
        find . -path ./var/lib/dpkg -prune -o -printf '%M %U:%G %p -> %l\n' | sort -k 3
        cat etc/passwd etc/group
    )
}

state >"$scratch/before"
for _ in first again; do install_packages --install "$1"/*.deb; done
for package in daemon tools; do
    dpkg-deb --fsys-tarfile "$1"/marlo-${package}_*.deb | tar t | sed -n 's#^\.\(.*[^/]\)$#\1#p' |
        sed "s#$(dpkg-architecture -qDEB_HOST_MULTIARCH)#ARCHITECTURE#"
done | diff "$here/contents.txt" - || fail "the packages hold other files than these"

owner=$(sed -n 's/^marlo:x:\([0-9]*:[0-9]*\):.*nologin$/\1/p' "$root/etc/passwd")
[ "$(stat -c '%A %u:%g' "$root/data/vendor/aon")" = "drwx------ $owner" ] ||
    fail "the directory of the memory partitions is another's"
unit=$root/usr/lib/systemd/system/marlo_daemon.service
[ -L "$root/etc/systemd/system/dev-marlo_com_dev.device.wants/marlo_daemon.service" ] ||
    fail "the service does not start with the device"
grep -qx 'ExecStart=/usr/sbin/marlo_daemon' "$unit" || fail "the service starts another program"
"$here/../platform/service_file.sh" "$unit" "$root/usr/sbin/marlo_daemon"
for program in usr/bin/marlo-sim usr/sbin/marlo_daemon; do
    ! readelf --sections "$root/$program" | grep -F .symtab || fail "$program is not stripped"
done

mkdir "$root"/{var/lib,run}/marlo && touch "$root"/{var/lib,run}/marlo/x "$root/data/vendor/aon/partition"
install_packages --remove marlo-tools marlo-daemon
[ -e "$root/data/vendor/aon/partition" ] || fail "the memory is gone with the package's files"
install_packages --purge marlo-daemon
state | diff "$scratch/before" - || fail "purged, the packages leave something behind"
