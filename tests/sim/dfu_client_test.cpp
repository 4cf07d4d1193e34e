// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <tuple>

#include "tests/sim/scripted_host.h"

namespace sim::test {
namespace {

using testing::HasSubstr;

constexpr auto kDfu = Channel::kDfu;

const Bytes kUpdate = message(1, words({1, 0, 0, 0x20474D49, 0x54445055}));
const Bytes kFirstErase = message(13, words({0, 1048576, 65536}));

Behaviour with_fragments_of(uint32_t size) {
    Behaviour behaviour = running(kHostMode);
    behaviour.fragment_size = size;
    return behaviour;
}

Behaviour at_flash_rate(uint32_t rate) {
    Behaviour behaviour = running(kHostMode);
    behaviour.flash_rate = rate;
    return behaviour;
}

// A host that has opened the channel and holds the wakelock.
class DfuHost : public Host {
  public:
    explicit DfuHost(const Behaviour& behaviour = running(kHostMode),
                     FirmwareBundle firmware = generated_firmware())
        : Host(behaviour, std::move(firmware)) {
        reopen();
        take_wakelock();
    }
    explicit DfuHost(const char* fault) : DfuHost(running(kHostMode, {fault})) {}

    // What the flash does not hold as it should; "" if it does.
    std::string mismatch() {
        std::string why;
        return model.flash_matches(&why) ? "" : why;
    }
    void reopen() {
        model.close_channel(kDfu);
        ASSERT_EQ(model.open_channel(kDfu), 0);
    }
    // Goes on where the co-processor is, up to the end.
    void resume() {
        reopen();
        if (testing::Test::HasFatalFailure()) return;
        ask_state();
        answer();
        expect_success();
    }
    void expect_success() {
        EXPECT_EQ(first_failure(), "");
        EXPECT_EQ(model.status().phase, Phase::kFinished);
        EXPECT_EQ(mismatch(), "");
    }
};

Tamper cut_to(size_t size) {
    return [size](Bytes& bytes) {
        bytes.resize(size);
        seal(bytes);
    };
}

Tamper become(uint32_t id, const std::vector<uint32_t>& payload) {
    return [=](Bytes& bytes) { bytes = message(id, words(payload)); };
}

TEST(DfuClient, FragmentsNeedNotFitTheImages) {
    for (const uint32_t size : {61u, 200000u}) {
        DfuHost host(with_fragments_of(size));
        EXPECT_THAT(host.mismatch(), HasSubstr("never written"));
        host.download();
        host.expect_success();
    }
}

TEST(DfuClient, WrongMessagesAreReported) {
    const std::tuple<uint32_t, int, Tamper, const char*> wrongs[] = {
        {6, 3, [](Bytes& b) { b.back() ^= 1; }, "IMG_OFFSET_RESP: CRC expected"},
        {4, 0, add_one(4), "magic expected 0x0a0b0c0d, got 0x0a0b0c0e"},
        {13, 0, [](Bytes& b) { ++b[8]; }, "total length expected 28, got 29"},
        {13, 0, [](Bytes& b) { b.resize(15); }, "packet of 15 bytes"},
        {4, 0, add_one(0), "IMG_OFFSET_REQ is no message of the host"},
        {13, 0, add_one(20), "expected partition SCRATCH"},
        {13, 1, add_one(24), "expected partition APPS"},
        {13, 1, [](Bytes& b) { b.clear(); }, "expected partition APPS"},
        {13, 3, become(13, {0, 1048576, 65536}), "the table names no further range"},
        {13, 0, become(13, {2, 0, 0}), "operation expected 0 or 1, got 2"},
        {13, 3, add_one(24), "word at 24 expected 0x00000000"},
        {1, 0, add_one(35), "MG_UPDT_REQ: word at 32"},
        {4, 1, add_one(16), "IMG_INFO_RESP: word at 16"},
        {4, 1, add_one(20), "IMG_INFO_RESP: word at 20"},
        {4, 0, cut_to(24), "length expected 28, got 24"},
        {6, 2, add_one(16), "IMG_OFFSET_RESP: word at 16"},
        {6, 2, add_one(20), "IMG_OFFSET_RESP: word at 20"},
        {6, 2, add_one(24), "IMG_OFFSET_RESP: word at 24"},
        {6, 24, cut_to(28 + 100003 % 4096), "length expected 4124"},
        {6, 24, add_one(28 + 4095), "past its end expected 0, got 1"},
        {6, 0, become(4, {3, 100003, 0}), "IMG_INFO_RESP while IMG_OFFSET_REQ is outstanding"},
        {12, 0, add_one(27), "SESSION_END_RESP: word at 24"},
    };
    for (const auto& [id, which, how, failure] : wrongs) {
        DfuHost host;
        host.tamper = change(0, id, which, how);
        host.download();
        EXPECT_THAT(host.first_failure(), HasSubstr(failure));
    }
}

TEST(DfuClient, WrongImageByteShowsInTheFlash) {
    DfuHost host;
    host.tamper = change(0, 6, 0, add_one(28 + 4095));
    host.download();
    EXPECT_EQ(host.first_failure(), "");
    EXPECT_THAT(host.mismatch(), HasSubstr("flash, image 3 (APPS): byte 4095"));
}

TEST(DfuClient, HostMessagesOutOfTurn) {
    DfuHost offset;
    offset.send(message(6, words({3, 0, 0})));
    EXPECT_THAT(offset.first_failure(), HasSubstr("while no request is outstanding"));
    DfuHost update;
    update.download();
    update.send(kUpdate);
    EXPECT_THAT(update.first_failure(), HasSubstr("without a state query"));
    DfuHost host;
    host.ask_state();
    host.answer();
    EXPECT_EQ(host.first_failure(), "MG_UPDT_REQ before the erase of partition SCRATCH");
}

TEST(DfuClient, PacketNeedsHostModeWakelockAndChannel) {
    Host host(running(kFlashMode));
    EXPECT_EQ(host.model.receive(kDfu, Bytes(16)), -EBADF);
    ASSERT_EQ(host.model.open_channel(kDfu), 0);
    EXPECT_EQ(host.model.open_channel(kDfu), -EBUSY);
    host.ask_state();
    EXPECT_THAT(host.model.failures(),
                testing::ElementsAre("the channel dfu is opened while it is open",
                                     "packet of 28 bytes written without the wakelock",
                                     "download packet in boot mode FLASH"));
    EXPECT_FALSE(host.model.readable(kDfu));
}

// The channel is lost at every request in turn, while the flash is still busy with the answer; the
// host asks for the state and goes on.
TEST(DfuClient, ResumesAfterTheChannelWasLostAtEveryRequest) {
    FirmwareBundle small = generated_firmware();
    for (Image& image : small.images) image.data.resize(std::min<size_t>(image.data.size(), 9000));
    for (size_t lost_at = 0;; ++lost_at) {
        DfuHost host(at_flash_rate(1000000), small);
        host.erase_all();
        host.ask_state();
        host.answer(lost_at);
        if (host.model.status().phase == Phase::kFinished) break;
        host.reset();
        EXPECT_TRUE(host.model.hung_up(kDfu));
        EXPECT_FALSE(host.model.readable(kDfu));
        EXPECT_EQ(host.model.receive(kDfu, Bytes(16)), -EPIPE);
        SCOPED_TRACE(lost_at);
        host.resume();
    }
}

TEST(DfuClient, ErasesByItselfWhatTheHostHasSkipped) {
    FirmwareBundle firmware;
    firmware.erase_ranges = {{"MIDDLE", 100, 50}};
    firmware.images = {{3, "ACROSS", Bytes(300, 1), true, 0}};
    DfuHost host(with_fragments_of(50), firmware);
    host.ask_state();
    host.answer();
    EXPECT_THAT(host.model.failures(),
                testing::ElementsAre("MG_UPDT_REQ before the erase of partition MIDDLE"));
    EXPECT_TRUE(host.model.flash_matches(nullptr));
}

TEST(DfuClient, WorksAtTheFlashRate) {
    using namespace std::chrono_literals;
    DfuHost host(at_flash_rate(65536));
    host.send(kFirstErase);
    EXPECT_EQ(host.model.next_deadline(), Time(1s));
    host.model.set_time(250ms);
    EXPECT_EQ(host.model.status().erase_done, 16384u);
    EXPECT_FALSE(host.model.readable(kDfu));
    host.ask_state();
    EXPECT_EQ(host.first_failure(),
              "DFU_SPCL_OPERATION_REQ while the one before is not answered yet");
    host.model.set_time(1s);
    EXPECT_TRUE(host.model.readable(kDfu));
    EXPECT_EQ(host.model.next_deadline(), std::nullopt);
}

TEST(DfuClient, HangUpFaultTakesTheChannelAwayForAWhile) {
    using namespace std::chrono_literals;
    for (const char* fault : {"hang-up-at-packet@2:200", "hang-up-at-session-end:200"}) {
        SCOPED_TRACE(fault);
        DfuHost host(fault);
        host.download();
        EXPECT_TRUE(host.model.hung_up(kDfu));
        host.model.close_channel(kDfu);
        host.model.set_time(200ms - 1ns);
        EXPECT_EQ(host.model.open_channel(kDfu), -ENODEV);
        host.model.set_time(200ms);
        host.resume();
    }
    DfuHost host("hang-up-at-fragment@3:never");
    host.download();
    host.model.close_channel(kDfu);
    host.model.set_time(1000h);
    EXPECT_EQ(host.model.open_channel(kDfu), -ENODEV);
}

TEST(DfuClient, ChannelFileIsMissingAsOftenAsAskedFor) {
    DfuHost host("dfu-channel-missing@2:2");
    host.model.close_channel(kDfu);
    EXPECT_EQ(host.model.open_channel(kDfu), -ENOENT);
    EXPECT_EQ(host.model.open_channel(kDfu), 0);
}

TEST(DfuClient, FaultsAnswerWithACodeAndADownloadAnewWorks) {
    const auto erase = [](DfuHost& host) { host.send(kFirstErase); };
    const auto ask = [](DfuHost& host) { host.erase_all(), host.ask_state(); };
    const auto ask_later = [](DfuHost& host) { host.download(), host.ask_state(); };
    const std::tuple<const char*, std::function<void(DfuHost&)>, Bytes> table[] = {
        {"erase-fails", erase, words({0, 1, 0, 0, 0, 0, 0})},
        {"state-query-fails@1:9", ask, words({1, 9, 0, 0, 0, 0, 0})},
        {"cancel@3", ask_later, words({1, 0, 0, 4, 0, 0, 0})}};
    for (const auto& [fault, what, payload] : table) {
        DfuHost host(fault);
        what(host);
        EXPECT_EQ(host.model.take_packet(kDfu), message(14, payload)) << fault;
        host.reopen();
        host.download();
        host.expect_success();
    }
    // A refused query has told nothing.
    DfuHost host("state-query-fails");
    host.ask_state();
    host.answer();
    host.send(kUpdate);
    EXPECT_THAT(host.first_failure(), HasSubstr("without a state query"));
}

TEST(DfuClient, ImageThatThereIsNoneOfHasNoSize) {
    DfuHost host("unknown-image@2:77");
    host.tamper = change(16, 77, 0, add_one(20));
    host.download();
    EXPECT_EQ(host.first_failure(),
              "IMG_INFO_RESP: word at 20 expected 0x00000000, got 0x00000001");
}

}  // namespace
}  // namespace sim::test
