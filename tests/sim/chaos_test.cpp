// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cerrno>

#include "sim/chaos/chaos_device.h"
#include "tests/sim/scripted_host.h"

namespace sim::test {
namespace {

using Outcome = HostReader::Outcome;

Bytes length_field(uint32_t length, size_t size) {
    Bytes bytes(size);
    put(bytes, 8, length);
    return bytes;
}

TEST(HostReader, MakesMessagesAsTheLengthFieldTells) {
    HostReader reader({44, 17, 8});
    EXPECT_EQ(reader.took(Bytes(16)), Outcome::kMessage) << "too short for the field";
    EXPECT_EQ(reader.message().size(), 44u);
    EXPECT_EQ(reader.took(length_field(20, 44)), Outcome::kMessage);
    EXPECT_EQ(reader.message().size(), 20u) << "the rest is cut off";
    EXPECT_EQ(reader.took(length_field(100, 44)), Outcome::kMore);
    EXPECT_EQ(reader.next_read(), 100u);
    EXPECT_EQ(reader.took(Bytes(55)), Outcome::kMore);
    EXPECT_EQ(reader.took(Bytes(100)), Outcome::kMessage);
    EXPECT_EQ(reader.message().size(), 100u);
    EXPECT_EQ(reader.took(length_field(0, 17)), Outcome::kNothing);
    EXPECT_EQ(reader.took({}), Outcome::kNothing);
    EXPECT_EQ(reader.took(length_field(0x80000000, 17)), Outcome::kFailed);
    EXPECT_EQ(reader.failed(EAGAIN), Outcome::kMore);
    EXPECT_EQ(reader.failed(EAGAIN), Outcome::kMore);
    EXPECT_EQ(reader.failed(EAGAIN), Outcome::kFailed);
    EXPECT_TRUE(reader.between_messages());
}

// Reads `count` packets of remote memory and answers as it should; what it has read.
std::vector<Bytes> asked(uint64_t seed, Time step, size_t count, bool answers_wrongly = false) {
    EventList events;
    ChaosDevice device({seed, running(kHostMode), generated_firmware(), {}, false}, events);
    device.set_noise(40);
    device.write_wake_lock(kWakelock);
    RmaHost host;
    HostReader reader({40, 13, 4});
    std::vector<Bytes> packets;
    for (Time now{0}; packets.size() < count && device.failure().empty(); now += step) {
        device.set_time(now);
        if (device.hung_up(Channel::kRma)) device.close_channel(Channel::kRma);
        if (!device.any_open()) device.open_channel(Channel::kRma);
        if (const auto error = device.read_error(Channel::kRma)) reader.failed(*error);
        if (!device.readable(Channel::kRma)) continue;
        packets.push_back(device.take_packet(Channel::kRma));
        Bytes rest = packets.back();
        do {
            const size_t size = std::min(rest.size(), reader.next_read());
            const Bytes piece(rest.begin(), rest.begin() + static_cast<ptrdiff_t>(size));
            rest.erase(rest.begin(), rest.begin() + static_cast<ptrdiff_t>(size));
            device.host_reads(Channel::kRma, reader.next_read(), piece);
            if (reader.took(piece) != Outcome::kMessage) continue;
            auto answer = host.answer_to(reader.message());
            if (answer && answers_wrongly) answer->back() ^= 1;
            for (int tries = 0; answer && !answer->empty() && tries < 100; ++tries) {
                const int taken = device.receive(Channel::kRma, *answer);
                if (taken == 0 || (taken < 0 && taken != -EAGAIN && taken != -EBUSY)) break;
                answer->erase(answer->begin(), answer->begin() + std::max(taken, 0));
            }
        } while (!rest.empty());
    }
    EXPECT_EQ(device.failure().empty(), !answers_wrongly) << device.failure();
    return packets;
}

TEST(Chaos, ASeedAsksTheSameWhateverTheTime) {
    using namespace std::chrono_literals;
    const std::vector<Bytes> first = asked(1, 1ms, 1000);
    EXPECT_EQ(first, asked(1, 3s, 1000));
    EXPECT_NE(first, asked(2, 1ms, 1000));
}

TEST(Chaos, AWrongAnswerIsFoundOut) {
    EXPECT_LT(asked(1, Time{1}, 1000, true).size(), 20u);
}

}  // namespace
}  // namespace sim::test
