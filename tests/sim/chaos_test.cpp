// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cerrno>

#include "sim/chaos/course.h"
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

// One turn of a host that reads remote memory's channel; `packets`: all that it has read.
void take_turn(ChaosDevice& device, HostReader& reader, RmaHost& host, bool answers_wrongly,
               std::vector<Bytes>& packets) {
    if (device.hung_up(Channel::kRma)) {
        device.close_channel(Channel::kRma);
        reader.forget();
    }
    if (!device.is_open(Channel::kRma)) device.open_channel(Channel::kRma);
    if (device.odd_events(Channel::kRma)) return device.polled(Channel::kRma);
    if (!device.readable(Channel::kRma)) return;
    if (const auto error = device.read_error(Channel::kRma)) {
        reader.failed(*error);
        return;
    }
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

// What a host reads that takes a turn in each `step`, and gives an episode up when it has read
// nothing for some turns. Another one takes its place then.
std::vector<Bytes> asked(uint64_t seed, Time step, uint32_t episodes,
                         bool answers_wrongly = false) {
    constexpr int kTurnsInVain = 1000;
    EventList events;
    ChaosDevice device({seed, running(kHostMode), generated_firmware(), {}, false}, events);
    Course course(device, true);
    device.write_wake_lock(kWakelock);
    RmaHost host;
    HostReader reader({40, 13, 4});
    std::vector<Bytes> packets;
    Time now{0};
    while (course.episodes() < episodes && device.failure().empty()) {
        course.begin_next();
        int in_vain = 0;
        while (!course.done() && in_vain < kTurnsInVain && device.failure().empty()) {
            const size_t before = packets.size();
            device.set_time(now += step);
            take_turn(device, reader, host, answers_wrongly, packets);
            in_vain = packets.size() == before ? in_vain + 1 : 0;
        }
        course.end();
        if (in_vain < kTurnsInVain) continue;
        device.close_channel(Channel::kRma);
        device.new_host();
        device.write_wake_lock(kWakelock);
        host.begin_anew();
        reader.forget();
    }
    EXPECT_EQ(device.failure().empty(), !answers_wrongly) << device.failure();
    return packets;
}

TEST(Chaos, EpisodesAskTheSameWhateverTheTime) {
    using namespace std::chrono_literals;
    const std::vector<Bytes> first = asked(1, 1ms, 25);
    EXPECT_GT(first.size(), 1000u);
    EXPECT_EQ(first, asked(1, 3s, 25));
    EXPECT_NE(first, asked(2, 1ms, 25));
}

// How much was chosen before makes no difference.
TEST(Chaos, AChapterOfChoicesStandsByItself) {
    DiceBox box(1);
    box.begin_chapter(4);
    const Dice first = box.roll("packet");
    box.roll("packet");
    box.begin_chapter(5);
    EXPECT_NE(Dice(box.roll("packet")).word(), Dice(first).word());
    box.begin_chapter(4);
    EXPECT_EQ(Dice(box.roll("packet")).word(), Dice(first).word());
}

TEST(Chaos, AWrongAnswerIsFoundOut) {
    EXPECT_LT(asked(1, Time{1}, 25, true).size(), 20u);
}

}  // namespace
}  // namespace sim::test
