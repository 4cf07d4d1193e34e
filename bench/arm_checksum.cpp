// SPDX-License-Identifier: Apache-2.0
// usage: arm_checksum BYTES CALLS: so many checksums of so many bytes, for arm_instructions.sh.
// With 0 calls the chosen way is compared with the portable one instead.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "wire/crc32.h"
#include "wire/crc32_paths.h"

namespace {

constexpr size_t kLengths = 301;
constexpr size_t kAlignments = 16;

int compare() {
    if (!wire::crc32_paths().front().is_supported()) {
        std::fputs("this processor has no CRC32 instructions\n", stderr);
        return 1;
    }
    std::vector<uint8_t> bytes(kLengths + kAlignments);
    for (size_t index = 0; index < bytes.size(); ++index) {
        bytes[index] = static_cast<uint8_t>(index * 131 + (index >> 3));
    }
    for (size_t start = 0; start < kAlignments; ++start) {
        for (size_t length = 0; length < kLengths; ++length) {
            const auto part = std::span<const uint8_t>(bytes).subspan(start, length);
            if (wire::crc32(part, 7) != wire::portable_crc32(part, 7)) {
                std::fprintf(stderr, "wrong for %zu bytes from %zu\n", length, start);
                return 1;
            }
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: arm_checksum BYTES CALLS\n", stderr);
        return 2;
    }
    unsigned long calls = std::strtoul(argv[2], nullptr, 10);
    if (calls == 0) {
        return compare();
    }
    const std::vector<uint8_t> message(std::strtoul(argv[1], nullptr, 10));
    uint32_t checksum = 0;
    for (; calls > 0; --calls) {
        checksum = wire::crc32(message, checksum);
    }
    return checksum == 0 ? 1 : 0;  // so that nothing is left out
}
