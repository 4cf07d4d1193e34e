// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/misc_data_messages.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>

#include "tests/bytes.h"

using misc_data::DataCutter;
using misc_data::Piece;
using testing::ElementsAreArray;

namespace {

// The pieces as KIND/SIZExCOUNT, equal ones in a row together. Judges that they follow each other
// without a gap and end with the data.
std::string pieces_text(uint32_t limit, uint32_t total) {
    DataCutter cutter(limit, total);
    if (!cutter.can_advance()) {
        return "fails";
    }
    std::vector<std::pair<std::string, int>> runs;
    uint32_t offset = 0;
    uint32_t sequence = 0;
    for (Piece piece = {}; piece.kind != misc_data::PACKET_LAST_DATA; offset += piece.size) {
        piece = cutter.next();
        EXPECT_EQ(piece.offset, offset) << limit << " " << total;
        EXPECT_EQ(piece.sequence, ++sequence) << limit << " " << total;
        const std::string shown = std::to_string(piece.kind) + "/" + std::to_string(piece.size);
        if (runs.empty() || runs.back().first != shown) {
            runs.emplace_back(shown, 0);
        }
        ++runs.back().second;
    }
    EXPECT_EQ(offset, total) << limit;
    std::string text;
    for (const auto& [shown, count] : runs) {
        text += (text.empty() ? "" : " ") + shown + "x" + std::to_string(count);
    }
    return text;
}

}  // namespace

TEST(MiscDataMessages, GoldenVectors) {
    EXPECT_THAT(misc_data::start_packet(1, 0x01020304),
                ElementsAreArray(from_hex("00000000 01000000 04030201 00000000")));
    EXPECT_THAT(misc_data::start_packet(0xABCD, 0),
                ElementsAreArray(from_hex("00000000 cdab0000 00000000 00000000")));
    EXPECT_THAT(misc_data::crc_packet(1, 0xCBF43926),
                ElementsAreArray(from_hex("04000000 01000000 04000000 00000000 2639f4cb")));
    EXPECT_THAT(misc_data::finish_packet(),
                ElementsAreArray(from_hex("05000000 00000000 00000000 00000000")));
    const Bytes data = {0xD0, 0xD1, 0xD2, 0xD3, 0xD4};
    Bytes packet(100, 0xEE);  // what a buffer held before does not show through
    misc_data::build_data_packet(packet, 1, {misc_data::PACKET_DATA, 1, 3, 0x0201}, data);
    EXPECT_EQ(packet, from_hex("01000000 01000000 03000000 01020000 d1d2d3"));
    misc_data::build_data_packet(packet, 1, {misc_data::PACKET_LAST_DATA, 5, 0, 1}, data);
    EXPECT_EQ(packet, from_hex("02000000 01000000 00000000 01000000"));
}

TEST(MiscDataMessages, Answer) {
    glink__shm_packet_response answer;
    EXPECT_EQ(answer.status(), 0);
    const Bytes bytes = from_hex("00000000 00000000 00000000 00000009 feffffff 04030281");
    std::copy(bytes.begin(), bytes.end(), answer.bytes.begin());
    EXPECT_EQ(answer.status(), -2);
    EXPECT_EQ(answer.max_payload_size(), 0x81020304U);
}

TEST(MiscDataMessages, DataIsCutAsTheLimitAllows) {
    constexpr uint32_t kTotals[] = {0, 1, 47, 48, 49, 96, 97, 98};
    using Row = std::array<const char*, std::size(kTotals)>;
    constexpr Row kOnePacket = {"2/0x1",  "2/1x1",  "2/47x1", "2/48x1",
                                "2/49x1", "2/96x1", "2/97x1", "2/98x1"};
    struct Limit {
        uint32_t limit;
        Row pieces;
    };
    for (const Limit& row : {
             Limit{0, kOnePacket},
             {15, kOnePacket},
             {16, {"2/0x1", "2/1x1", "fails", "fails", "fails", "fails", "fails", "fails"}},
             {17,
              {"2/0x1", "2/1x1", "1/1x45 2/2x1", "1/1x46 2/2x1", "1/1x47 2/2x1", "1/1x94 2/2x1",
               "1/1x95 2/2x1", "1/1x96 2/2x1"}},
             {64,
              {"2/0x1", "2/1x1", "2/47x1", "2/48x1", "2/49x1", "1/48x1 2/48x1", "1/48x1 2/49x1",
               "1/48x2 2/2x1"}},
             {4096, kOnePacket},
             {0xFFFFFFFF, kOnePacket},
         }) {
        for (size_t column = 0; column < std::size(kTotals); ++column) {
            EXPECT_EQ(pieces_text(row.limit, kTotals[column]), row.pieces[column])
                << "limit " << row.limit << ", " << kTotals[column] << " bytes";
        }
    }
}

// The end of the second packet, 0x11FFFFFE0, is above 2^32.
TEST(MiscDataMessages, NoPieceReachesBeyondTheData) {
    EXPECT_EQ(pieces_text(0x90000000, 0xF0000000), "1/2415919088x1 2/1610612752x1");
    EXPECT_EQ(pieces_text(0x60000000, 0xF0000000), "1/1610612720x2 2/805306400x1");
}
