// SPDX-License-Identifier: Apache-2.0
#include "sim/capture/pcapng_writer.h"

#include <gmock/gmock.h>

#include <sstream>

#include "sim/packet_words.h"

namespace sim {
namespace {

using Direction = PcapngWriter::Direction;

Bytes written(const std::ostringstream& out) {
    const std::string text = out.str();
    return {text.begin(), text.end()};
}

Bytes words(std::initializer_list<uint32_t> values) {
    Bytes bytes;
    append_words(bytes, values);
    return bytes;
}

TEST(PcapngWriterTest, SectionAndInterfaceAreAsTheFormatHasThem) {
    std::ostringstream out;
    PcapngWriter writer(out);
    writer.section("sim", "abcde");
    // The comment of five bytes is filled up to eight.
    Bytes expected = words({0x0A0D0D0A, 52, 0x1A2B3C4D, 1, 0xffffffff, 0xffffffff, 5u << 16 | 1,
                            0x64636261, 0x65, 3u << 16 | 4, 0x006d6973, 0, 52});
    EXPECT_EQ(written(out), expected);

    out.str("");
    writer.interface("dfu");
    expected = words({1, 40, 147, 262144, 3u << 16 | 2, 0x00756664, 1u << 16 | 9, 9, 0, 40});
    EXPECT_EQ(written(out), expected);
}

TEST(PcapngWriterTest, PacketHasItsTimeDirectionAndFillBytes) {
    std::ostringstream out;
    PcapngWriter writer(out);
    writer.packet(2, Time{0x123456789abcdef0}, Direction::kOutbound, Bytes{1, 2, 3, 4, 5});
    EXPECT_EQ(written(out), words({6, 52, 2, 0x12345678, 0x9abcdef0, 5, 5, 0x04030201, 5,
                                   4u << 16 | 2, 2, 0, 52}));
}

TEST(PcapngWriterTest, OverlongPacketIsCutButItsLengthIsTold) {
    std::ostringstream out;
    PcapngWriter writer(out);
    writer.packet(0, Time{0}, Direction::kInbound, Bytes(PcapngWriter::kLongestPacket + 1));
    const Bytes bytes = written(out);
    EXPECT_EQ(word_at(bytes, 20), PcapngWriter::kLongestPacket);
    EXPECT_EQ(word_at(bytes, 24), PcapngWriter::kLongestPacket + 1);
    EXPECT_EQ(bytes.size(), word_at(bytes, 4));
}

}  // namespace
}  // namespace sim
