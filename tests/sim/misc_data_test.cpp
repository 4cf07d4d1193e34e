// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <tuple>

#include "tests/sim/scripted_host.h"

namespace sim::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr auto kMisc = Channel::kMiscData;

Bytes packet(uint32_t kind, uint32_t type, uint32_t size, uint32_t sequence,
             std::span<const uint8_t> payload = {}) {
    Bytes bytes = words({kind, type, size, sequence});
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

Bytes crc_packet(uint32_t type, const Bytes& data) {
    return packet(4, type, 4, 0, words({crc(data)}));
}

const Bytes kFinish = packet(5, 0, 0, 0);

Bytes some_bytes(size_t count, uint8_t seed = 1) {
    Bytes bytes(count);
    for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(seed + i * 7 + i / 256);
    return bytes;
}

const MiscFiles kFiles = {{0, some_bytes(100)}, {1, some_bytes(97)}};

// A host that sends misc data as it must be sent, except for what `tamper` does to its packets.
class MiscHost {
  public:
    explicit MiscHost(uint32_t limit = 64, const std::vector<std::string>& faults = {})
        : host([&] {
              Behaviour behaviour = running(kHostMode, faults);
              behaviour.payload_limit = limit;
              return behaviour;
          }()) {
        host.take_wakelock();
        EXPECT_EQ(host.model.open_channel(kMisc), 0);
    }

    Host host;
    Tamper tamper;
    bool refused = false;  // an answer had a status other than 0

    // The status of the answer; without one -1.
    int64_t exchange(Bytes bytes) {
        if (tamper) tamper(bytes);
        if (!bytes.empty()) host.model.receive(kMisc, bytes);
        if (!host.model.readable(kMisc)) return -1;
        const Bytes answer = host.model.take_packet(kMisc);
        EXPECT_EQ(answer.size(), 24u);
        EXPECT_FALSE(host.model.readable(kMisc));
        limit_ = word(answer, 20);
        refused = refused || word(answer, 16) != 0;
        return word(answer, 16);
    }

    void update(const MiscFiles& files) {
        bool last_good = false;
        for (const auto& [type, data] : files) {
            last_good = false;
            for (int i = 0; i < 3 && !last_good; ++i) last_good = resource(type, data);
        }
        if (last_good) exchange(kFinish);
    }

    bool resource(uint32_t type, const Bytes& data) {
        const auto total = static_cast<uint32_t>(data.size());
        if (exchange(packet(0, type, total, 0)) != 0) return false;
        const uint32_t chunk = limit_ - 16;
        const std::span<const uint8_t> all(data);
        uint32_t sequence = 1;
        size_t offset = 0;
        if (limit_ < total + 16 && chunk < total - 1) {
            do {
                const auto piece = all.subspan(offset, chunk);
                if (send_data(1, type, sequence++, piece) != 0) return false;
                offset += chunk;
            } while (offset + chunk < total - 1);
        }
        send_data(2, type, sequence, all.subspan(offset));
        return exchange(crc_packet(type, data)) == 0;
    }

    std::string mismatch(const MiscFiles& files) const {
        std::string why;
        return host.model.misc_data_matches(files, &why) ? "" : why;
    }

  private:
    int64_t send_data(uint32_t kind, uint32_t type, uint32_t sequence,
                      std::span<const uint8_t> piece) {
        return exchange(packet(kind, type, static_cast<uint32_t>(piece.size()), sequence, piece));
    }

    uint32_t limit_ = 0;
};

TEST(MiscData, RightHostFillsTheMemory) {
    for (const uint32_t limit : {17u, 18u, 64u}) {
        for (const size_t size : {0u, 1u, 2u, 3u, 48u, 49u, 50u, 97u, 100u}) {
            const MiscFiles files = {{0, some_bytes(size)}, {1, some_bytes(100, 9)}};
            MiscHost misc(limit);
            misc.update(files);
            ASSERT_EQ(misc.host.first_failure(), "") << limit << " " << size;
            ASSERT_EQ(misc.mismatch(files), "") << limit << " " << size;
            ASSERT_THAT(misc.host.phases(),
                        ElementsAre("misc begins", "misc resource", "misc resource", "misc ends"));
        }
    }
}

TEST(MiscData, TellsTheLimitInTheAnswerToAStartOnly) {
    MiscHost misc(64);
    const Bytes data = some_bytes(10);
    for (const auto& [bytes, limit] : std::vector<std::pair<Bytes, uint32_t>>{
             {packet(0, 0, 10, 0), 64}, {packet(2, 0, 10, 1, data), 0}, {crc_packet(0, data), 0}}) {
        misc.host.model.receive(kMisc, bytes);
        const Bytes answer = misc.host.model.take_packet(kMisc);
        EXPECT_EQ(Bytes(answer.begin(), answer.begin() + 16),
                  Bytes(bytes.begin(), bytes.begin() + 16));
        EXPECT_EQ(word(answer, 16), 0u);
        EXPECT_EQ(word(answer, 20), limit);
    }
}

// Misc data has no seal.
Tamper add_to(size_t at, int more = 1) {
    return [=](Bytes& bytes) { bytes.at(at) = static_cast<uint8_t>(bytes.at(at) + more); };
}

void longer(Bytes& bytes) {
    bytes.push_back(0);
}

TEST(MiscData, WrongPacketsAreReportedAndRefused) {
    const std::tuple<uint32_t, int, Tamper, const char*> wrongs[] = {
        {0, 0, [](Bytes& b) { b.resize(15); }, "packet of 15 bytes: shorter than"},
        {5, 0, [](Bytes& b) { b[0] = 3; }, "kind expected 0, 1, 2, 4 or 5, got 3"},
        {0, 0, longer, "start: length expected 16, got 17"},
        {0, 1, add_to(12), "start: word at 12 expected 0, got 1"},
        {0, 1, add_to(4), "start: type expected 0 or 1, got 2"},
        {0, 0, add_to(8), "last data: payload size expected 5, got 4"},
        {1, 0, add_to(4), "data: type expected 0, got 1"},
        {1, 0, add_to(8), "data: length expected 65, got 64"},
        {1, 1, add_to(12), "data: sequence expected 2, got 3"},
        {2, 0, add_to(12, -1), "last data: sequence expected 3, got 2"},
        {1, 0, [](Bytes& b) { b.pop_back(), --b[8]; }, "data: payload size expected 48, got 47"},
        {1, 1, add_to(0), "last data with 52 bytes to come: kind expected 1, got 2"},
        {2, 1, add_to(0, -1), "data with 49 bytes to come: kind expected 2, got 1"},
        {4, 0, add_to(16), "CRC: value expected 0x"},
        {4, 0, add_to(8), "CRC: word at 8 expected 4, got 5"},
        {4, 0, add_to(12), "CRC: word at 12 expected 0, got 1"},
        {4, 0, longer, "CRC: length expected 20, got 21"},
        {4, 0, add_to(4), "CRC: type expected 0, got 1"},
        {5, 0, add_to(4), "finish: type expected 0, got 1"},
        {5, 0, add_to(8), "finish: word at 8 expected 0, got 1"},
        {5, 0, add_to(12), "finish: word at 12 expected 0, got 1"},
        {5, 0, longer, "finish: length expected 16, got 17"},
    };
    for (const auto& [kind, which, how, failure] : wrongs) {
        MiscHost misc;
        misc.tamper = change(0, kind, which, how);
        misc.update(kFiles);
        EXPECT_THAT(misc.host.first_failure(), HasSubstr(failure));
        EXPECT_TRUE(misc.refused) << failure;
    }
}

TEST(MiscData, PacketsOutOfTurn) {
    const Bytes ten = some_bytes(10);
    const Bytes start0 = packet(0, 0, 10, 0);
    const Bytes start1 = packet(0, 1, 10, 0);
    const Bytes data0 = packet(2, 0, 10, 1, ten);
    const Bytes data1 = packet(2, 1, 10, 1, ten);
    const Bytes crc0 = crc_packet(0, ten);
    const Bytes crc1 = crc_packet(1, ten);
    using Faults = std::vector<std::string>;
    const std::tuple<Faults, std::vector<Bytes>, const char*> table[] = {
        {{}, {data0}, "last data without a start"},
        {{}, {kFinish}, "finish without a resource"},
        {{}, {start0, crc0}, "CRC before the last data"},
        {{}, {start0, data0, data0}, "last data before the CRC"},
        {{}, {start0, data0, start1}, "start of type 1 before the CRC"},
        {{}, {start0, data0, crc0, crc0}, "CRC without a start"},
        {{}, {start0, data0, crc0, start0}, "start of type 0, which is complete already"},
        {{}, {start1, data1, crc1, start0}, "start of type 0 after type 1"},
        {{}, {start0, data0, crc0, kFinish, kFinish}, "finish after the finish"},
        {{"misc-start-refused"},
         {start0, start0, start1},
         "type 1 after 2 of 3 attempts at type 0"},
        {{"misc-start-refused"}, {start0, start0, start0, start0}, "after 3 of 3 attempts at it"},
        {{"misc-crc-refused"},
         {start0, data0, crc0, kFinish},
         "finish although type 0 was refused"},
        {{"misc-finish-refused"}, {start0, data0, crc0, kFinish, kFinish}, "after the finish"},
        {{"misc-answer-missing@3"}, {start0, data0, crc0, kFinish}, "although type 0 was refused"},
    };
    for (const auto& [faults, packets, failure] : table) {
        MiscHost misc(64, faults);
        for (const Bytes& bytes : packets) {
            EXPECT_EQ(misc.host.first_failure(), "") << failure;
            misc.exchange(bytes);
        }
        EXPECT_THAT(misc.host.first_failure(), HasSubstr(failure));
    }
    MiscHost misc;
    misc.host.model.receive(kMisc, start0);
    misc.host.model.receive(kMisc, data0);
    EXPECT_EQ(misc.host.first_failure(),
              "last data before the answer to the packet before was read");
}

TEST(MiscData, RefusedResourceIsStartedAnewButNotForEver) {
    const std::string missing = "misc data, type 0: not received";
    const std::tuple<const char*, std::string, const char*> table[] = {
        {"misc-start-refused@1:7", "", "misc ends"},
        {"misc-data-refused@1:7", "", "misc ends"},
        {"misc-data-refused@3:7", "", "misc ends"},
        {"misc-crc-refused@2:7", "", "misc ends"},
        {"misc-answer-missing@4", "", "misc ends"},
        {"misc-answer-missing@5", "", "misc ends"},
        {"misc-start-refused", missing, "misc begins"},
        {"misc-data-refused", missing, "misc begins"},
        {"misc-answer-missing", missing, ""},
        {"misc-finish-refused:9", "", "misc resource"}};
    for (const auto& [fault, mismatch, last_phase] : table) {
        MiscHost misc(64, {fault});
        misc.update(kFiles);
        EXPECT_EQ(misc.host.first_failure(), "") << fault;
        EXPECT_EQ(misc.mismatch(kFiles), mismatch) << fault;
        const auto phases = misc.host.phases();
        EXPECT_EQ(phases.empty() ? "" : phases.back(), last_phase) << fault;
    }
}

TEST(MiscData, ComparesWithTheFiles) {
    const Bytes data = some_bytes(100);
    Bytes other = data;
    ++other[99];
    MiscHost misc;
    misc.update({{0, data}});
    EXPECT_EQ(misc.mismatch({{0, data}}), "");
    EXPECT_EQ(misc.mismatch({{0, data}, {1, data}}), "misc data, type 1: not received");
    EXPECT_EQ(misc.mismatch({}), "misc data, type 0: received, but there is no file");
    EXPECT_THAT(misc.mismatch({{0, other}}), HasSubstr("type 0: byte 99 expected"));
    EXPECT_EQ(misc.mismatch({{0, some_bytes(99)}}),
              "misc data, type 0: length expected 99, got 100");
}

TEST(MiscData, RestartForgetsAndTheNextOpeningBeginsAnew) {
    MiscHost misc;
    Coprocessor& model = misc.host.model;
    misc.exchange(packet(0, 1, 100, 0));
    misc.host.model.receive(kMisc, packet(1, 1, 48, 1, some_bytes(48)));
    misc.host.reset();
    EXPECT_TRUE(model.hung_up(kMisc));
    EXPECT_FALSE(model.readable(kMisc));
    EXPECT_EQ(model.receive(kMisc, kFinish), -EPIPE);
    model.close_channel(kMisc);
    EXPECT_EQ(model.receive(kMisc, kFinish), -EBADF);
    ASSERT_EQ(model.open_channel(kMisc), 0);
    misc.update(kFiles);
    EXPECT_EQ(misc.mismatch(kFiles), "");
    // And with the channel closed.
    model.close_channel(kMisc);
    misc.host.reset();
    EXPECT_FALSE(model.hung_up(kMisc));
    EXPECT_EQ(misc.mismatch(kFiles), "misc data, type 0: not received");
    // What an earlier opening brought does not count for the next.
    ASSERT_EQ(model.open_channel(kMisc), 0);
    misc.update(kFiles);
    model.close_channel(kMisc);
    ASSERT_EQ(model.open_channel(kMisc), 0);
    misc.update({{1, kFiles.at(1)}});
    EXPECT_EQ(misc.mismatch(kFiles), "misc data, type 0: not received");
    EXPECT_EQ(misc.host.first_failure(), "");
}

}  // namespace
}  // namespace sim::test
