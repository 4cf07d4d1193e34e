#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: arm_instructions.sh BYTES
# Prints how many instructions per byte the checksum of a message takes on a 32-bit ARM processor
# with CRC32 instructions: compiled as the release is, and run by QEMU, whose log has a line for
# each instruction. Before, every short length at every alignment is compared with the portable way. Counted is what a hundred calls more add. Exit status 77: a tool is missing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
bytes=$1
calls=100
for tool in arm-linux-gnueabihf-g++ qemu-arm-static; do
    if ! command -v "$tool" >/dev/null; then
        echo "no instructions on ARM counted: $tool is not installed" >&2
        exit 77
    fi
done
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
arm-linux-gnueabihf-g++ -std=c++20 -O2 -DNDEBUG -fstack-protector-strong -static -I . \
    bench/arm_checksum.cpp wire/crc32.cpp wire/crc32_arm.cpp wire/crc32_portable.cpp \
    -o "$scratch/checksum"

qemu-arm-static -cpu max "$scratch/checksum" "$bytes" 0

# One instruction at a time; the variable's name depends on QEMU's version.
export QEMU_SINGLESTEP=1 QEMU_ONE_INSN_PER_TB=1

instructions() { # CALLS
    qemu-arm-static -cpu max -d exec,nochain -D "$scratch/log" \
        "$scratch/checksum" "$bytes" "$1" >&2
    grep -c '^Trace' "$scratch/log"
}

few=$(instructions 1)
many=$(instructions "$((1 + calls))")
if ((many <= few)); then
    echo "$0: $few instructions with 1 call, $many with $((1 + calls)) calls" >&2
    exit 1
fi
awk -v instructions="$((many - few))" -v bytes="$((calls * bytes))" \
    'BEGIN { printf "%.4f\n", instructions / bytes }'
