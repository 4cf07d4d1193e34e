// SPDX-License-Identifier: Apache-2.0
// usage: arm_checksum BYTES CALLS: so many checksums of so many bytes, for arm_instructions.sh.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "wire/crc32.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: arm_checksum BYTES CALLS\n", stderr);
        return 2;
    }
    const std::vector<uint8_t> message(std::strtoul(argv[1], nullptr, 10));
    uint32_t checksum = 0;
    for (unsigned long calls = std::strtoul(argv[2], nullptr, 10); calls > 0; --calls) {
        checksum = wire::crc32(message, checksum);
    }
    return checksum == 0 ? 1 : 0;  // so that nothing is left out
}
