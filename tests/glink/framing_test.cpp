// SPDX-License-Identifier: Apache-2.0
#include <numeric>

#include "tests/allocation_limit.h"
#include "tests/glink/channel_fixture.h"
#include "wire/little_endian.h"

using scripted::platform;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// `size` bytes 1, 2, 3 ..., with a length field at `offset`.
scripted::Bytes packet_of(size_t size, size_t offset, uint32_t length) {
    scripted::Bytes packet(size);
    std::iota(packet.begin(), packet.end(), uint8_t{1});
    wire::put_word_at(packet, offset, length);
    return packet;
}

scripted::Bytes padded(scripted::Bytes bytes, size_t size) {
    bytes.resize(size);
    return bytes;
}

scripted::Bytes slice(const scripted::Bytes& bytes, size_t from, size_t to) {
    return {bytes.begin() + static_cast<ptrdiff_t>(from),
            bytes.begin() + static_cast<ptrdiff_t>(to)};
}

class Framing : public ChannelTest {
  protected:
    using ChannelTest::ChannelTest;
    // The packet in several reads, cut at these places.
    void arrive(const Bytes& packet, std::vector<size_t> cuts) {
        cuts.push_back(packet.size());
        size_t from = 0;
        for (const size_t to : cuts) {
            arrives(slice(packet, from, to));
            from = to;
        }
    }
};

class RmaFraming : public Framing {
  protected:
    RmaFraming() : Framing("glink_pkt_marlo_rma", 40) {}
};

class NoFraming : public Framing {
  protected:
    NoFraming() : Framing("glink_pkt_marlo_custom_data", 44) {}
};

TEST_F(Framing, SixteenBytesAreCompleteAndTheBufferIsDeliveredWhole) {
    connect();
    const Bytes packet = packet_of(16, 8, 400);  // too short for the length field to count
    arrives(packet);
    EXPECT_THAT(packets(), ElementsAre(padded(packet, 44)));
    EXPECT_EQ(platform().count("GLINK_int pkt size to be read = 0"), 1u);
}

TEST_F(Framing, FromSeventeenBytesTheLengthFieldRules) {
    connect();
    const Bytes whole = packet_of(44, 8, 44);
    arrives(whole);
    const Bytes split = packet_of(20, 8, 20);
    arrive(split, {17});
    const Bytes longer_than_it_says = packet_of(28, 8, 20);
    arrives(longer_than_it_says);
    const Bytes long_one = packet_of(100, 8, 100);
    arrive(long_one, {44, 45});
    EXPECT_THAT(packets(), ElementsAre(whole, split, slice(longer_than_it_says, 0, 20), long_one));
    EXPECT_EQ(platform().count("GLINK_int complete read bytes = 100"), 1u);
}

TEST_F(Framing, BufferOfALongPacketIsNotKept) {
    constexpr size_t kSize = 1 << 20;
    connect();
    const size_t before = bytes_in_large_blocks();
    arrive(packet_of(kSize, 8, kSize), {44});
    EXPECT_THAT(packets(), ElementsAre(SizeIs(kSize)));
    EXPECT_LT(bytes_in_large_blocks(), before + 2 * kSize);  // this test keeps the packet
}

TEST_F(Framing, LengthZeroLeavesNothingToDeliver) {
    connect();
    arrives(packet_of(20, 8, 0));
    EXPECT_THAT(packets(), IsEmpty());
    EXPECT_EQ(platform().count("E trigger_event_cb"), 1u);
    EXPECT_EQ(platform().count("GLINK_int buffer len is 0"), 1u);
    EXPECT_EQ(platform().count("triggered event callback, got value -1"), 1u);
}

TEST_F(Framing, PacketThatIsTooLongOrEndsTooSoonIsAFailedRead) {
    const AllocationLimit limit(1024 * 1024);
    connect();
    for (const uint32_t length : {0x01000001u, 0x80000000u, 0xFFFFFFFFu}) {
        arrives(packet_of(20, 8, length));
    }
    arrives(packet_of(20, 8, 0x01000000));  // no memory for it
    arrives(packet_of(20, 8, 400));
    for (int read = 0; read < 3; ++read) {
        arrives({});
    }
    EXPECT_THAT(packets(), IsEmpty());
    EXPECT_THAT(errors(), testing::AllOf(SizeIs(5), Each(GLINK_IO_ERROR)));
    EXPECT_EQ(platform().count("GLINK_int read failed with errno = 90"), 3u);  // EMSGSIZE
    EXPECT_EQ(platform().count("GLINK_int read failed with errno = 12"), 1u);  // ENOMEM
    EXPECT_EQ(platform().count("GLINK_int read failed with errno = 5"), 1u);
}

TEST_F(Framing, ReaderThatWaitsForTheRestOfAPacketCanBeEnded) {
    connect();
    arrives(packet_of(20, 8, 400));
    EXPECT_THAT(packets(), IsEmpty());
    transport_.reset();
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_EQ(platform().open_descriptors(), 0);
}

TEST_F(RmaFraming, LengthStandsAtOffsetFourFromThirteenBytesOn) {
    connect();
    const Bytes header_alone = packet_of(12, 4, 12);
    arrives(header_alone);
    const Bytes split = packet_of(60, 4, 60);
    arrive(split, {13});
    EXPECT_THAT(packets(), ElementsAre(padded(header_alone, 40), split));
}

TEST_F(NoFraming, WholeBufferIsDeliveredWhateverArrived) {
    connect();
    const Bytes packet = packet_of(30, 8, 100);
    arrives(packet);
    EXPECT_THAT(packets(), ElementsAre(padded(packet, 44)));
}

}  // namespace
