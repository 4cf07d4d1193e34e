// SPDX-License-Identifier: Apache-2.0
#include "tests/allocation_limit.h"
#include "tests/glink/channel_fixture.h"
#include "wire/little_endian.h"

using scripted::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// `size` bytes 1, 2, 3 ..., with a length field at `offset`.
scripted::Bytes packet_of(size_t size, size_t offset, uint32_t length) {
    scripted::Bytes packet(size);
    for (size_t index = 0; index < size; ++index) {
        packet[index] = static_cast<uint8_t>(index + 1);
    }
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

class DfuFraming : public ChannelTest {};

class RmaFraming : public ChannelTest {
  protected:
    RmaFraming() : ChannelTest("glink_pkt_marlo_rma", 40) {}
};

class NoFraming : public ChannelTest {
  protected:
    NoFraming() : ChannelTest("glink_pkt_marlo_custom_data", 44) {}
};

TEST_F(DfuFraming, SixteenBytesAreCompleteAndTheBufferIsDeliveredWhole) {
    connect();
    const Bytes packet = packet_of(16, 8, 400);  // too short for the length field to count
    arrives(packet);
    EXPECT_THAT(packets(), ElementsAre(padded(packet, 44)));
    EXPECT_EQ(platform().count("GLINK_int pkt size to be read = 0"), 1u);
}

TEST_F(DfuFraming, FromSeventeenBytesTheLengthFieldRules) {
    connect();
    const Bytes whole = packet_of(44, 8, 44);
    arrives(whole);
    const Bytes split = packet_of(20, 8, 20);
    arrives(slice(split, 0, 17));
    arrives(slice(split, 17, 20));
    const Bytes longer_than_it_says = packet_of(28, 8, 20);
    arrives(longer_than_it_says);
    EXPECT_THAT(packets(), ElementsAre(whole, split, slice(longer_than_it_says, 0, 20)));
}

TEST_F(DfuFraming, LongPacketIsReadToItsEnd) {
    connect();
    const Bytes packet = packet_of(100, 8, 100);
    arrives(slice(packet, 0, 44));
    arrives(slice(packet, 44, 45));
    arrives(slice(packet, 45, 100));
    EXPECT_THAT(packets(), ElementsAre(packet));
    EXPECT_EQ(platform().count("GLINK_int complete read bytes = 100"), 1u);
}

TEST_F(DfuFraming, LengthZeroLeavesNothingToDeliver) {
    connect();
    arrives(packet_of(20, 8, 0));
    EXPECT_THAT(packets(), IsEmpty());
    EXPECT_EQ(platform().count("E trigger_event_cb"), 1u);
    EXPECT_EQ(platform().count("GLINK_int buffer len is 0"), 1u);
    EXPECT_EQ(platform().count("triggered event callback, got value -1"), 1u);
}

TEST_F(DfuFraming, LengthAboveSixteenMebibytesIsAFailedRead) {
    connect();
    for (const uint32_t length : {0x01000001u, 0x80000000u, 0xFFFFFFFFu}) {
        arrives(packet_of(20, 8, length));
    }
    EXPECT_THAT(packets(), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre(GLINK_IO_ERROR, GLINK_IO_ERROR, GLINK_IO_ERROR));
    EXPECT_EQ(platform().count("GLINK_int read failed with errno = 90"), 3u);  // EMSGSIZE
}

TEST_F(DfuFraming, PacketThatMemoryHasNoRoomForIsAFailedRead) {
    const AllocationLimit limit(1024 * 1024);
    connect();
    arrives(packet_of(20, 8, 0x01000000));
    EXPECT_THAT(packets(), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre(GLINK_IO_ERROR));
    EXPECT_EQ(platform().count("GLINK_int read failed with errno = 12"), 1u);  // ENOMEM
}

TEST_F(DfuFraming, PacketThatEndsTooSoonIsAFailedRead) {
    connect();
    const Bytes packet = packet_of(20, 8, 400);
    arrives(packet);
    for (int read = 0; read < 3; ++read) {
        arrives({});
    }
    EXPECT_THAT(packets(), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre(GLINK_IO_ERROR));
    EXPECT_EQ(platform().count("GLINK_int read failed with errno = 5"), 1u);
}

TEST_F(DfuFraming, ReaderThatWaitsForTheRestOfAPacketCanBeEnded) {
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
    arrives(slice(split, 0, 13));
    arrives(slice(split, 13, 60));
    EXPECT_THAT(packets(), ElementsAre(padded(header_alone, 40), split));
}

TEST_F(NoFraming, WholeBufferIsDeliveredWhateverArrived) {
    connect();
    const Bytes packet = packet_of(30, 8, 100);
    arrives(packet);
    EXPECT_THAT(packets(), ElementsAre(padded(packet, 44)));
}

}  // namespace
