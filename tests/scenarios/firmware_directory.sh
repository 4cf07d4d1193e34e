#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# An update from a directory of somebody's own: images of 0 bytes, 1 byte and 64 MiB, values left out
# and an id used twice; then a table that cannot be served, which is an error that names it.
. "$(dirname "$0")/common.sh"
need_fuse
firmware=$scratch/firmware
mkdir "$firmware"
: >"$firmware/empty.bin"
printf x >"$firmware/one.bin"
head -c $((64 * 1024 * 1024)) /dev/urandom >"$firmware/large.bin"
head -c 5000 /dev/urandom >"$firmware/flash.bin"
head -c 3000 /dev/urandom >"$firmware/partition_1.bin"

partition() { # ID OFFSET SIZE NAME IMAGE ERASABLE
    echo "<Partition><img_id>$1</img_id><Offset>$2</Offset><size>$3</size>"
    echo "<Partition_Name>$4</Partition_Name><Image_Path>$5</Image_Path>"
    echo "<HostSpecificInfo><PartType>$6</PartType></HostSpecificInfo></Partition>"
}
{
    echo '<config><Bank_1><Partition_table><no_of_partitions>5</no_of_partitions>'
    partition 3 1048576 4096 EMPTY empty.bin 1
    partition 4 2097152 4096 ONE one.bin 0
    partition 5 16777216 67108864 LARGE large.bin 1
    partition 6 134217728 4096 SECOND_ONE one.bin 0
    echo '<Partition><Offset>142606336</Offset></Partition>' # SECOND_ONE again, never asked for
    partition 7 138412032 0 NOWHERE empty.bin 0
    echo '</Partition_table></Bank_1></config>'
} >"$firmware/partition_table.xml"

simulate update --quiet --firmware "$firmware" --fragment 32768 >"$scratch/output" ||
    fail "exit status $?: $(cat "$scratch/output")"
[ "$(cat "$scratch/output")" = "PASS update" ] || fail "$(cat "$scratch/output")"

rm "$firmware/partition_table.xml"
status=0
simulate update --quiet --firmware "$firmware" >"$scratch/output" 2>&1 || status=$?
[ "$status" != 0 ] || fail "passed without a partition table"
grep -q "partition_table.xml" "$scratch/output" || fail "does not name it: $(cat "$scratch/output")"
