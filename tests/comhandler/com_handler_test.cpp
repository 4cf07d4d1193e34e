// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <functional>

#include "comhandler/MarloComHandler.h"
#include "platform/scripted/scripted_platform.h"

using scripted::platform;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const std::string kDevice = "/dev/marlo_com_dev";
constexpr const char* kBootComplete = "vendor.marlo.boot_complete";

class ComHandler : public testing::Test {
  protected:
    ComHandler() {
        scripted::reset_platform();
        platform().device(kDevice);
    }
    ~ComHandler() override { EXPECT_EQ(platform().open_descriptors(), 0); }

    // What the driver finds at the address that a word of the request block names.
    static char* memory_at(uint32_t address) {
        return reinterpret_cast<char*>(static_cast<uintptr_t>(address));
    }

    MarloComHandler handler_;
};

struct Command {
    std::function<int(MarloComHandler&)> call;
    uint32_t request;
    uint32_t cmd;
    uint32_t value;
    std::string failure;              // priority and text of the line about a failed ioctl
    const char* device = "marlocom";  // as the line about a failed open names it
    bool has_result = false;
    bool positive_is_failure = true;
};

constexpr uint32_t kBoot = 0xc0205609;

const Command kCommands[] = {
    {[](auto& h) { return h.marlocomSpiBusy(), 0; }, 0x80205604, 0, 0, "E SPI busy failed"},
    {[](auto& h) { return h.marlocomSpiFree(), 0; }, 0x80205603, 0, 0, "E SPI free failed"},
    {[](auto& h) { return h.marloReset(), 0; }, 0xc0205605, 20, 0,
     "D \t***** Marlo reset failed *****\t"},
    {[](auto& h) { return h.marloSoftReset(), 0; }, kBoot, 0, 0,
     "E \t***** Marlo soft reset failed *****\t"},
    {[](auto& h) { return h.marloTWMexit(), 0; }, kBoot, 1, 0, "E Send TWM_EXIT flag failed"},
    {[](auto& h) { return h.marloLoad(); }, kBoot, 3, 0, "E Send MARLO_LOAD flag failed",
     "marlo_com", true, true},
    {[](auto& h) { return h.marloUnload(), 0; }, kBoot, 4, 0, "E Send MARLO_UNLOAD flag failed"},
    {[](auto& h) { return h.set_marlo_boot_mode(FLASH); }, kBoot, 5, 1,
     "E Send SET_BOOT_MODE ioctl failed", "marlo_com", true, false},
    {[](auto& h) { return h.get_marlo_boot_mode(); }, kBoot, 6, 0,
     "E Send GET_BOOT_MODE ioctl failed", "marlo_com", true, false},
    {[](auto& h) { return h.cmd_save_aon_dump(); }, kBoot, 7, 0,
     "E Send SEND_BOOT_CMD ioctl failed", "kz_com", true, false},
    {[](auto& h) { return h.set_marlo_boot_status(2); }, kBoot, 8, 2,
     "E Send BOOT_STATUS ioctl failed", "marlo_com", true, false},
};

TEST_F(ComHandler, EachCommandSendsItsWordsAndReportsFailure) {
    for (const Command& command : kCommands) {
        SCOPED_TRACE(command.failure);
        scripted::reset_platform();
        platform().device(kDevice);
        int answer = 0;
        marlo_com_ioctl_req seen{};
        uint32_t request_seen = 0;
        platform().on_ioctl([&](uint32_t request, uint32_t* words) {
            request_seen = request;
            memcpy(&seen, words, sizeof(seen));
            return answer;
        });
        EXPECT_EQ(command.call(handler_), 0);
        EXPECT_EQ(request_seen, command.request);
        EXPECT_EQ(seen.cmd, command.cmd);
        EXPECT_THAT(seen.reserved, ElementsAre(0, 0, 0, 0));
        EXPECT_EQ(seen.reply_buffer, 0u);
        if (command.cmd != 20) {
            EXPECT_EQ(seen.value, command.value);
            EXPECT_EQ(seen.count, 0u);
        }
        EXPECT_THAT(platform().log(), IsEmpty());

        answer = -EIO;
        EXPECT_EQ(command.call(handler_), command.has_result ? -1 : 0);
        EXPECT_THAT(platform().log(), ElementsAre(command.failure));
        answer = 2;
        EXPECT_EQ(command.call(handler_), command.has_result ? 2 : 0);
        EXPECT_THAT(platform().log(), SizeIs(command.positive_is_failure ? 2 : 1));
        EXPECT_EQ(platform().open_descriptors(), 0);
    }
}

TEST_F(ComHandler, EachCommandNamesTheDeviceThatCannotBeOpened) {
    for (const Command& command : kCommands) {
        SCOPED_TRACE(command.failure);
        scripted::reset_platform();
        platform().fail_opens(kDevice, {ENOENT});
        EXPECT_EQ(command.call(handler_), command.has_result ? -1 : 0);
        EXPECT_THAT(platform().log(), ElementsAre("E Failed to open the marlocom_dev",
                                                  std::string("E Cannot open ") + command.device +
                                                      "_dev node fd =-1\n"));
        EXPECT_THAT(platform().transcript({"sleep"}), IsEmpty());
    }
}

TEST_F(ComHandler, ResetPointsTheDriverAtItsDataWord) {
    uint32_t data = 0;
    uint32_t count = 0;
    platform().on_ioctl([&](uint32_t, uint32_t* words) {
        memcpy(&data, memory_at(words[0]), sizeof(data));
        count = words[6];
        return 0;
    });
    handler_.marloReset();
    EXPECT_EQ(data, 0x08000000u);
    EXPECT_EQ(count, 1u);

    platform().no_low_memory(true);
    handler_.marloReset();
    EXPECT_THAT(platform().transcript({"ioctl", "E "}),
                ElementsAre("ioctl 0xc0205605 cmd 20 value 0 = 0",
                            "E No memory below 4 GiB for the reset's data word: "
                            "Cannot allocate memory"));
    EXPECT_EQ(handler_.get_current_aon_fw_version(), nullptr);
}

TEST_F(ComHandler, BusyDeviceIsTriedFifteenTimes) {
    platform().fail_opens(kDevice, std::vector<int>(14, EBUSY));
    EXPECT_EQ(handler_.get_marlo_boot_mode(), 0);
    EXPECT_THAT(platform().transcript({"sleep 1"}), SizeIs(14));

    platform().fail_opens(kDevice, std::vector<int>(15, EBUSY));
    EXPECT_EQ(handler_.get_marlo_boot_mode(), -1);
    EXPECT_THAT(platform().transcript({"sleep 1"}), SizeIs(29));
    EXPECT_EQ(platform().count("E marlocom_dev is busy, retrying in 1 seconds...\n"), 29u);
    EXPECT_EQ(platform().count("E Failed to open marlocom_dev after multiple attempts\n"), 1u);
}

TEST_F(ComHandler, DescriptorZeroIsAnOpenDevice) {
    platform().next_descriptor(0);
    EXPECT_EQ(handler_.marloLoad(), 0);
    EXPECT_THAT(platform().transcript({"open", "close"}), SizeIs(2));
}

TEST_F(ComHandler, VersionIsCopiedOutOfTheReplyBufferAndLogged) {
    platform().property(kBootComplete, "1");
    platform().on_ioctl([](uint32_t, uint32_t* words) {
        char* reply = memory_at(words[7]);
        memset(reply, 'x', 308);  // no text is terminated
        const uint32_t version = 0x0203FFFF;
        memcpy(reply + 4, &version, sizeof(version));
        strcpy(reply + 8, "APPS.1");
        return 0;
    });
    const auto record = handler_.get_current_aon_fw_version();
    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record->apps_version, "APPS.1");
    EXPECT_EQ(strlen(record->dsp_version), 99u);
    EXPECT_EQ(strlen(record->bt_version), 99u);
    EXPECT_THAT(platform().log(), ElementsAre("I KAPI Ver: 2.3.65535\n", "I apps_tbx7700: APPS.1\n",
                                              "I dsp_tbx7700: " + std::string(99, 'x') + "\n",
                                              "I bt_tbx7700: " + std::string(99, 'x') + "\n"));
    EXPECT_THAT(platform().transcript({"ioctl", "sleep"}),
                ElementsAre("ioctl 0xc0205608 cmd 3 value 0 = 0"));
}

TEST_F(ComHandler, VersionQueryIsRepeatedFourteenTimes) {
    platform().property(kBootComplete, "1");
    platform().on_ioctl([](uint32_t, uint32_t*) { return -EAGAIN; });
    EXPECT_EQ(handler_.get_current_aon_fw_version(), nullptr);
    EXPECT_THAT(platform().transcript({"ioctl"}), SizeIs(14));
    EXPECT_THAT(platform().transcript({"sleep 1"}), SizeIs(14));
    EXPECT_EQ(platform().count("D get_current_aon_fw_version: Marlo boot done, but get version "
                               "fail-retry:14"),
              1u);
    EXPECT_EQ(platform().log().back(), "E Send SEND_IPC_CMD failed to get version");
}

TEST_F(ComHandler, VersionIsZeroFilledWhenNothingWasAnswered) {
    // The boot never completes; or the driver only ever says something positive.
    EXPECT_STREQ(handler_.get_current_aon_fw_version()->apps_version, "");
    EXPECT_THAT(platform().transcript({"ioctl"}), IsEmpty());
    EXPECT_EQ(platform().count("D get_current_aon_fw_version: Marlo boot not completed, retry:14"),
              1u);
    EXPECT_EQ(platform().now_ns(), 14'000'000'000);

    platform().property(kBootComplete, "1");
    platform().on_ioctl([](uint32_t, uint32_t*) { return 1; });
    EXPECT_NE(handler_.get_current_aon_fw_version(), nullptr);
    EXPECT_EQ(platform().count("I KAPI Ver: 0.0.0\n"), 2u);
}

}  // namespace
