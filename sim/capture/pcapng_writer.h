// SPDX-License-Identifier: Apache-2.0
// Writes the file format pcapng (draft-ietf-opsawg-pcapng), as far as a capture needs it: one
// section, its interfaces, and packets with a time in nanoseconds and a direction.
#pragma once

#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

#include "sim/observer.h"

namespace sim {

class PcapngWriter {
  public:
    // What network analysers take in one packet of this link type; of a longer one this is kept.
    static constexpr uint32_t kLongestPacket = 262144;

    enum class Direction : uint32_t { kUnknown = 0, kInbound = 1, kOutbound = 2 };

    // `out` must outlive the writer; its state tells whether all could be written.
    explicit PcapngWriter(std::ostream& out) : out_(out) {}

    // First of all, and once.
    void section(std::string_view application, std::string_view comment);
    // After the section and before its packets; they count from 0. Its packets are in a format of
    // ours: link type 147, USER0.
    void interface(std::string_view name);
    void packet(uint32_t interface, Time since_1970, Direction direction,
                std::span<const uint8_t> bytes);

  private:
    void block(uint32_t type, const Bytes& body);

    std::ostream& out_;
};

}  // namespace sim
