// SPDX-License-Identifier: Apache-2.0
// The platform-information block that the host must patch into flash.bin before it serves it: five
// little-endian words at the start of each segment of the embedded boot loader (an ELF image at
// `elf_offset`) that has the virtual address 0x20147FA4, program header 0 left out.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "sim/firmware_bundle.h"

namespace sim {

constexpr uint32_t kPlatformBlockAddress = 0x20147FA4;

// Debug policy, platform id, two words of ones, subtype.
using PlatformBlock = std::array<uint32_t, 5>;

PlatformBlock expected_platform_block(const PlatformFacts& facts);

// Patches the image as the host must. An image whose ELF header, program header table or block
// does not lie inside it stays as it is. Result: how many segments were patched.
int patch_platform_block(std::span<uint8_t> image, int32_t elf_offset, const PlatformBlock& block);

}  // namespace sim
