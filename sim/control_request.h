// SPDX-License-Identifier: Apache-2.0
// One request on the control device: eight little-endian words, of which each command uses few. All
// others must be zero.
//
//   byte  0 value (for the reset: address of the data word)   byte 20 cmd
//   byte  4 four reserved words                               byte 24 count
//                                                             byte 28 address of the reply
#pragma once

#include <array>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>

namespace sim {

enum class Command {
    kUnknown,
    kSpiFree,
    kSpiBusy,
    kReset,
    kVersion,
    kSoftReset,
    kTwmExit,
    kLoad,
    kUnload,
    kSetBootMode,
    kGetBootMode,
    kSaveDump,
    kBootStatus,
};

struct ControlRequest {
    uint32_t number = 0;              // of the ioctl
    std::array<uint32_t, 8> words{};  // zero for the requests that the kernel hands no input
    Command command = Command::kUnknown;

    // `block`: 32 bytes; may be empty for the read-only requests. A block of another size decodes
    // as an unknown command.
    static ControlRequest decode(uint32_t number, std::span<const uint8_t> block);

    uint32_t value() const { return words[0]; }
    uint32_t reply_address() const { return words[7]; }

    // What is wrong with the request's words; empty if nothing.
    std::string error() const;
    // The fields of the event; without the result.
    nlohmann::json describe() const;
};

}  // namespace sim
