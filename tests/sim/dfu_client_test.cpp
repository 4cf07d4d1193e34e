// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "tests/sim/scripted_host.h"

namespace sim::test {
namespace {

using testing::HasSubstr;

// Changes the n-th message (from 0) of an id.
std::function<void(Bytes&)> change(uint32_t id, int n, std::function<void(Bytes&)> how) {
    return [=, seen = 0](Bytes& bytes) mutable {
        if (bytes.at(0) == id && seen++ == n) how(bytes);
    };
}

std::function<void(Bytes&)> add_one(size_t at) {
    return [at](Bytes& bytes) {
        ++bytes.at(at);
        seal(bytes);
    };
}

class CorrectHost : public testing::TestWithParam<uint32_t> {};

TEST_P(CorrectHost, FillsTheFlash) {
    Behaviour behaviour;
    behaviour.fragment_size = GetParam();
    Host host(behaviour);
    host.boot_in_host_mode();
    std::string why;
    EXPECT_FALSE(host.model.flash_matches(&why));
    EXPECT_THAT(why, HasSubstr("never written"));
    host.download();
    EXPECT_EQ(host.first_failure(), "");
    EXPECT_TRUE(host.model.flash_matches(&why)) << why;
    EXPECT_EQ(host.model.status().phase, Phase::kFinished);
    // And again on the same channel: everything is erased anew.
    host.download();
    EXPECT_EQ(host.first_failure(), "");
    EXPECT_TRUE(host.model.flash_matches(&why)) << why;
}

INSTANTIATE_TEST_SUITE_P(Fragments, CorrectHost, testing::Values(61, 4096, 200000));

struct Wrong {
    const char* name;
    uint32_t id;
    int which;
    std::function<void(Bytes&)> how;
    const char* failure;
};

class WrongMessage : public testing::TestWithParam<Wrong> {};

TEST_P(WrongMessage, IsReported) {
    const Wrong& wrong = GetParam();
    Host host;
    host.boot_in_host_mode();
    host.tamper = change(wrong.id, wrong.which, wrong.how);
    host.download();
    EXPECT_THAT(host.first_failure(), HasSubstr(wrong.failure));
}

const Wrong kWrongs[] = {
    {"Crc", 6, 3, [](Bytes& b) { b.back() ^= 1; }, "IMG_OFFSET_RESP: CRC expected"},
    {"Magic", 4, 0, add_one(4), "magic expected 0x0a0b0c0d, got 0x0a0b0c0e"},
    {"TotalLength", 13, 0, [](Bytes& b) { ++b[8]; }, "total length expected 28, got 29"},
    {"NoHeader", 13, 0, [](Bytes& b) { b.resize(15); }, "packet of 15 bytes"},
    {"Id", 4, 0, add_one(0), "IMG_OFFSET_REQ is no message of the host"},
    {"EraseOffset", 13, 0, add_one(20), "expected partition SCRATCH"},
    {"EraseLength", 13, 1, add_one(24), "expected partition APPS"},
    {"EraseLeftOut", 13, 1, [](Bytes& b) { b.clear(); }, "expected partition APPS"},
    {"EraseTwice", 13, 3,
     [](Bytes& b) {
         b = message(13, words({0, 1048576, 65536}));
     },
     "the table names no further range"},
    {"Operation", 13, 0,
     [](Bytes& b) {
         b = message(13, words({2, 0, 0}));
     },
     "operation expected 0 or 1, got 2"},
    {"StateArgument", 13, 3, add_one(24), "word at 24 expected 0x00000000"},
    {"UpdateText", 1, 0, add_one(35), "MG_UPDT_REQ: word at 32"},
    {"InfoImage", 4, 1, add_one(16), "IMG_INFO_RESP: word at 16"},
    {"InfoSize", 4, 1, add_one(20), "IMG_INFO_RESP: word at 20"},
    {"InfoLength", 4, 0,
     [](Bytes& b) {
         b.resize(24);
         seal(b);
     },
     "length expected 28, got 24"},
    {"OffsetImage", 6, 2, add_one(16), "IMG_OFFSET_RESP: word at 16"},
    {"OffsetEcho", 6, 2, add_one(20), "IMG_OFFSET_RESP: word at 20"},
    {"LengthEcho", 6, 2, add_one(24), "IMG_OFFSET_RESP: word at 24"},
    {"LastFragmentClipped", 6, 24,
     [](Bytes& b) {
         b.resize(28 + 100003 % 4096);
         seal(b);
     },
     "length expected 4124"},
    {"ZeroFill", 6, 24,
     [](Bytes& b) {
         b.back() = 9;
         seal(b);
     },
     "past its end expected 0, got 9"},
    {"InfoForOffset", 6, 0,
     [](Bytes& b) {
         b = message(4, words({3, 100003, 0}));
     },
     "IMG_INFO_RESP while IMG_OFFSET_REQ is outstanding"},
    {"SessionEndPayload", 12, 0, add_one(27), "SESSION_END_RESP: word at 24"},
};

INSTANTIATE_TEST_SUITE_P(Table, WrongMessage, testing::ValuesIn(kWrongs),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(DfuClient, WrongImageByteShowsInTheFlash) {
    for (size_t at : {size_t{28}, size_t{28 + 4095}}) {
        Host host;
        host.boot_in_host_mode();
        host.tamper = change(6, 0, add_one(at));
        host.download();
        EXPECT_EQ(host.first_failure(), "");
        std::string why;
        EXPECT_FALSE(host.model.flash_matches(&why));
        EXPECT_THAT(why, HasSubstr("flash, image 3 (APPS): byte " + std::to_string(at - 28)));
    }
}

TEST(DfuClient, UnpatchedPlatformBlockShowsInTheFlash) {
    Host host;
    host.boot_in_host_mode();
    // The first word of the block as shipped, in whatever fragment it travels.
    const Bytes block = words({1, 0x22, 0xFFFFFFFF, 0xFFFFFFFF, 0});
    host.tamper = [&](Bytes& bytes) {
        const auto place = std::search(bytes.begin(), bytes.end(), block.begin(), block.end());
        if (place == bytes.end()) return;
        const Bytes shipped = words({0xdeadbeef});
        std::copy(shipped.begin(), shipped.end(), place);
        seal(bytes);
    };
    host.download();
    std::string why;
    EXPECT_FALSE(host.model.flash_matches(&why));
    EXPECT_THAT(why, HasSubstr("image 1 (flash.bin): byte 32804 is 239, not 1"));
}

TEST(DfuClient, HostMessagesOutOfTurn) {
    const Bytes update = message(1, words({1, 0, 0, 0x20474D49, 0x54445055}));
    {
        Host host;
        host.boot_in_host_mode();
        host.send(message(6, words({3, 0, 0})));
        EXPECT_THAT(host.first_failure(), HasSubstr("while no request is outstanding"));
    }
    {
        Host host;
        host.boot_in_host_mode();
        host.send(update);
        EXPECT_THAT(host.first_failure(), HasSubstr("without a state query"));
    }
    {
        Host host;
        host.boot_in_host_mode();
        host.ask_state();
        host.answer();
        EXPECT_EQ(host.first_failure(), "MG_UPDT_REQ before the erase of partition SCRATCH");
        EXPECT_THAT(host.model.failures().back(),
                    HasSubstr("at flash offset 0x00150000, which is not erased"));
    }
}

TEST(DfuClient, PacketNeedsHostModeWakelockAndChannel) {
    Behaviour behaviour;
    behaviour.running = true;
    Host host(behaviour);
    EXPECT_EQ(host.model.receive(Channel::kDfu, Bytes(16)), -EBADF);
    ASSERT_EQ(host.model.open_channel(Channel::kDfu), 0);
    EXPECT_EQ(host.model.open_channel(Channel::kDfu), -EBUSY);
    host.ask_state();
    EXPECT_THAT(host.model.failures(),
                testing::ElementsAre("the channel dfu is opened while it is open",
                                     "packet of 28 bytes written without the wakelock",
                                     "download packet in boot mode FLASH"));
    EXPECT_FALSE(host.model.readable(Channel::kDfu));
}

// The channel is lost at every request in turn, while the flash is still busy with the answer; the
// host asks for the state and goes on.
TEST(DfuClient, ResumesAfterTheChannelWasLostAtEveryRequest) {
    FirmwareBundle small = generated_firmware();
    for (Image& image : small.images) image.data.resize(std::min<size_t>(image.data.size(), 9000));
    Behaviour behaviour;
    behaviour.flash_rate = 1000000;
    for (size_t lost_at = 0;; ++lost_at) {
        Host host(behaviour, small);
        host.boot_in_host_mode();
        host.erase_all();
        host.ask_state();
        host.answer(lost_at);
        if (host.model.status().phase == Phase::kFinished) break;
        host.reset();
        EXPECT_TRUE(host.model.hung_up(Channel::kDfu));
        EXPECT_FALSE(host.model.readable(Channel::kDfu));
        EXPECT_EQ(host.model.receive(Channel::kDfu, Bytes(16)), -EPIPE);
        host.model.close_channel(Channel::kDfu);
        ASSERT_EQ(host.model.open_channel(Channel::kDfu), 0);
        host.ask_state();
        host.answer();
        ASSERT_EQ(host.first_failure(), "") << lost_at;
        std::string why;
        ASSERT_TRUE(host.model.flash_matches(&why)) << lost_at << why;
    }
}

TEST(DfuClient, ErasesByItselfOnlyWhatTheHostIsNotToldToErase) {
    FirmwareBundle firmware;
    firmware.erase_ranges = {{"MIDDLE", 100, 50}};
    firmware.images = {{3, "ACROSS", Bytes(300, 1), true, 0}};
    Behaviour behaviour;
    behaviour.fragment_size = 50;
    Host host(behaviour, firmware);
    host.boot_in_host_mode();
    host.ask_state();
    host.answer();
    EXPECT_THAT(host.model.failures(),
                testing::ElementsAre(HasSubstr("MG_UPDT_REQ before the erase"),
                                     HasSubstr("flash offset 0x00000064, which is not erased")));
}

TEST(DfuClient, WorksAtTheFlashRate) {
    using namespace std::chrono_literals;
    Behaviour behaviour;
    behaviour.flash_rate = 65536;
    Host host(behaviour);
    host.boot_in_host_mode();
    host.send(message(13, words({0, 1048576, 65536})));
    EXPECT_EQ(host.model.next_deadline(), Time(1s));
    host.model.set_time(250ms);
    EXPECT_EQ(host.model.status().erase_done, 16384u);
    EXPECT_FALSE(host.model.readable(Channel::kDfu));
    host.ask_state();
    EXPECT_EQ(host.first_failure(),
              "DFU_SPCL_OPERATION_REQ while the one before is not answered yet");
    host.model.set_time(1s);
    EXPECT_TRUE(host.model.readable(Channel::kDfu));
    EXPECT_EQ(host.model.next_deadline(), std::nullopt);
}

Behaviour behaviour_with(const char* fault) {
    Behaviour behaviour;
    behaviour.faults = {parse_fault(fault)};
    return behaviour;
}

std::vector<std::string> states_answered(const Host& host) {
    std::vector<std::string> states;
    for (const Event& event : host.events.events) {
        if (event.fields.value("phase", "") == "state") states.push_back(event.fields["state"]);
    }
    return states;
}

void finish_after_hang_up(Host& host) {
    host.model.close_channel(Channel::kDfu);
    ASSERT_EQ(host.model.open_channel(Channel::kDfu), 0);
    host.ask_state();
    host.answer();
    std::string why;
    EXPECT_EQ(host.first_failure(), "");
    EXPECT_EQ(host.model.status().phase, Phase::kFinished);
    EXPECT_TRUE(host.model.flash_matches(&why)) << why;
}

// At a packet of the erase, too: a host that goes on from the state does not come back to it.
TEST(DfuClient, HangUpFaultTakesTheChannelAwayForAWhile) {
    using namespace std::chrono_literals;
    const std::pair<const char*, const char*> table[] = {
        {"hang-up-at-packet@1:200", "INIT"},
        {"hang-up-at-packet@2:200", "INIT"},
        {"hang-up-at-packet@6:200", "INFO_REQ"},
        {"hang-up-at-info@2:200", "INFO_REQ"},
        {"hang-up-at-fragment@3:200", "OFFSET_REQ"},
        {"hang-up-at-session-end:200", "SESSION_END_REQ"}};
    for (const auto& [fault, state] : table) {
        SCOPED_TRACE(fault);
        Host host(behaviour_with(fault));
        host.boot_in_host_mode();
        host.download();
        EXPECT_TRUE(host.model.hung_up(Channel::kDfu));
        host.model.close_channel(Channel::kDfu);
        EXPECT_EQ(host.model.open_channel(Channel::kDfu), -ENODEV);
        host.model.set_time(200ms - 1ns);
        EXPECT_EQ(host.model.open_channel(Channel::kDfu), -ENODEV);
        host.model.set_time(200ms);
        finish_after_hang_up(host);
        EXPECT_EQ(states_answered(host).back(), state);
    }
}

TEST(DfuClient, HungUpForEverOrNeverThereAtAll) {
    Host host(behaviour_with("hang-up-at-fragment@3:never"));
    host.boot_in_host_mode();
    host.download();
    host.model.close_channel(Channel::kDfu);
    host.model.set_time(std::chrono::hours(1000));
    EXPECT_EQ(host.model.open_channel(Channel::kDfu), -ENODEV);

    Behaviour missing = behaviour_with("dfu-channel-missing@2:2");
    missing.boot_mode = kHostMode;
    missing.running = true;
    Host other(missing);
    EXPECT_EQ(other.model.open_channel(Channel::kDfu), 0);
    other.model.close_channel(Channel::kDfu);
    EXPECT_EQ(other.model.open_channel(Channel::kDfu), -ENOENT);
    EXPECT_EQ(other.model.open_channel(Channel::kDfu), 0);
}

TEST(DfuClient, CancelsUntilTheHostBeginsAnew) {
    Host host(behaviour_with("cancel@3"));
    host.boot_in_host_mode();
    host.download();
    EXPECT_EQ(host.first_failure(), "");
    EXPECT_EQ(host.model.status().phase, Phase::kImages);
    host.ask_state();
    EXPECT_EQ(host.model.take_packet(Channel::kDfu), message(14, words({1, 0, 0, 4, 0, 0, 0})));
    host.model.close_channel(Channel::kDfu);
    host.model.open_channel(Channel::kDfu);
    host.download();
    EXPECT_EQ(host.first_failure(), "");
    EXPECT_TRUE(host.model.flash_matches(nullptr));
}

TEST(DfuClient, AsksForAnImageThatThereIsNoneOf) {
    for (const uint32_t size : {0u, 5u}) {
        Host host(behaviour_with("unknown-image@2:77"));
        host.boot_in_host_mode();
        host.unknown_image_size = size;
        host.download();
        EXPECT_EQ(host.first_failure(),
                  size ? "IMG_INFO_RESP: word at 20 expected 0x00000000, got 0x00000005" : "");
        EXPECT_EQ(host.model.flash_matches(nullptr), size == 0);
    }
}

TEST(DfuClient, RefusesTheStateQuery) {
    Host host(behaviour_with("state-query-fails@1:9"));
    host.boot_in_host_mode();
    host.erase_all();
    host.ask_state();
    EXPECT_EQ(host.model.take_packet(Channel::kDfu), message(14, words({1, 9, 0, 0, 0, 0, 0})));
    // It has told nothing.
    host.send(message(1, words({1, 0, 0, 0x20474D49, 0x54445055})));
    EXPECT_THAT(host.first_failure(), HasSubstr("without a state query"));
    EXPECT_THAT(states_answered(host), testing::ElementsAre("refused"));
}

TEST(DfuClient, EraseFaultIsAnsweredWithFailureAndTheDownloadStillWorks) {
    Behaviour behaviour;
    behaviour.faults = {{Fault::kEraseFails}};
    Host host(behaviour);
    host.boot_in_host_mode();
    host.send(message(13, words({0, 1048576, 65536})));
    EXPECT_EQ(host.model.take_packet(Channel::kDfu), message(14, words({0, 1, 0, 0, 0, 0, 0})));
    host.model.close_channel(Channel::kDfu);
    host.model.open_channel(Channel::kDfu);
    host.download();
    EXPECT_EQ(host.first_failure(), "");
    EXPECT_TRUE(host.model.flash_matches(nullptr));
}

}  // namespace
}  // namespace sim::test
