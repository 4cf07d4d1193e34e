// SPDX-License-Identifier: Apache-2.0
#include "sim/capture/pcapng_writer.h"

#include <algorithm>
#include <array>

#include "sim/packet_words.h"

namespace sim {
namespace {

constexpr uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr uint32_t kInterfaceDescription = 1;
constexpr uint32_t kEnhancedPacket = 6;

constexpr uint32_t kByteOrder = 0x1A2B3C4D;
constexpr uint32_t kVersion = 1;  // 1.0: the minor number is in the upper half
constexpr uint32_t kUnknownLength = 0xffffffff;
constexpr uint32_t kUser0 = 147;

constexpr uint32_t kEndOfOptions = 0;
constexpr uint32_t kComment = 1;
constexpr uint32_t kApplication = 4;  // of a section
constexpr uint32_t kName = 2;         // of an interface
constexpr uint32_t kResolution = 9;   // of an interface's times
constexpr uint8_t kNanoseconds = 9;
constexpr uint32_t kFlags = 2;  // of a packet

constexpr size_t kLongestOption = 0xffff;

// Bytes, then zeros up to a multiple of four.
void append_padded(Bytes& body, std::span<const uint8_t> bytes) {
    body.insert(body.end(), bytes.begin(), bytes.end());
    body.resize((body.size() + 3) / 4 * 4);
}

void append_option(Bytes& body, uint32_t code, std::span<const uint8_t> value) {
    value = value.first(std::min(value.size(), kLongestOption));
    append_words(body, {code | static_cast<uint32_t>(value.size()) << 16});
    append_padded(body, value);
}

void append_option(Bytes& body, uint32_t code, std::string_view text) {
    append_option(body, code, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

}  // namespace

void PcapngWriter::section(std::string_view application, std::string_view comment) {
    Bytes body;
    append_words(body, {kByteOrder, kVersion, kUnknownLength, kUnknownLength});
    append_option(body, kComment, comment);
    append_option(body, kApplication, application);
    append_words(body, {kEndOfOptions});
    block(kSectionHeader, body);
}

void PcapngWriter::interface(std::string_view name) {
    Bytes body;
    append_words(body, {kUser0, kLongestPacket});
    append_option(body, kName, name);
    append_option(body, kResolution, std::array{kNanoseconds});
    append_words(body, {kEndOfOptions});
    block(kInterfaceDescription, body);
}

void PcapngWriter::packet(uint32_t interface, Time since_1970, Direction direction,
                          std::span<const uint8_t> bytes) {
    const auto time = static_cast<uint64_t>(since_1970.count());
    const auto kept = bytes.first(std::min<size_t>(bytes.size(), kLongestPacket));
    Bytes body;
    append_words(body, {interface, static_cast<uint32_t>(time >> 32), static_cast<uint32_t>(time),
                        static_cast<uint32_t>(kept.size()), static_cast<uint32_t>(bytes.size())});
    append_padded(body, kept);
    Bytes flags;
    append_words(flags, {static_cast<uint32_t>(direction)});
    append_option(body, kFlags, flags);
    append_words(body, {kEndOfOptions});
    block(kEnhancedPacket, body);
}

// Its length stands before and behind it.
void PcapngWriter::block(uint32_t type, const Bytes& body) {
    Bytes block;
    const auto length = static_cast<uint32_t>(body.size() + 12);
    append_words(block, {type, length});
    block.insert(block.end(), body.begin(), body.end());
    append_words(block, {length});
    out_.write(reinterpret_cast<const char*>(block.data()),
               static_cast<std::streamsize>(block.size()));
}

}  // namespace sim
