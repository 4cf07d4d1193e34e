// SPDX-License-Identifier: Apache-2.0
// The variant without flash, where boots, power-ups and the push of its misc data meet.
#include <set>

#include "tests/daemon/daemon_fixture.h"

using scripted::platform;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;

namespace {

class NoFlash : public DaemonTest {
  protected:
    NoFlash() {
        boot_mode_ = HOST;
        set_running(true);
        apps_version_ = "APPS.2 NOFLASH_PSRAM";
        platform().file("/vendor/bt_firmware/image/mrnv20.bin", "de");
    }

    static size_t channel_opens(const std::string& channel) {
        return platform().transcript({"open " + channel}).size();
    }
};

// Two transfers at once would mix their packets.
TEST_F(NoFlash, PowerUpDuringAPushIsServedAfterIt) {
    bool announced = false;
    platform().on_write(kMiscChannel, [&](const scripted::Bytes&) {
        if (!std::exchange(announced, true)) {
            announce(4);
            announce(4);  // one more push will do for both
            EXPECT_EQ(channel_opens(kMiscChannel), 1u);
            EXPECT_EQ(channel_opens(kRmaChannel), 0u);
        }
        accept_misc_packet();
    });
    start_until_sleep(3);
    EXPECT_EQ(channel_opens(kMiscChannel), 2u);
    EXPECT_EQ(channel_opens(kRmaChannel), 2u);
    EXPECT_EQ(platform().count("D starting rma connection"), 2u);
    EXPECT_EQ(platform().count("Marlo Misc Data Resources Update Done"), 2u);
}

// They share one transport: it must not go while the download begins with it.
TEST_F(NoFlash, PowerUpWhileADownloadBeginsIsServedAfterIt) {
    boot_mode_ = FLASH;
    bool announced = false;
    platform().on_write(kDfuChannel, [&](const scripted::Bytes&) {
        if (!std::exchange(announced, true)) {
            announce(4);
        }
    });
    platform().property("persist.vendor.zt_aon.dfu_update", "1");
    platform().file(kVersionFile, "\"apps_cochip\": \"APPS.3\",\n");
    start_until_sleep(3);
    std::vector<std::string> lines = course();
    std::erase_if(lines, [](const std::string& line) {
        return !std::set<std::string>{"open dfu", "I on_aon_up: called\n", "notify 2",
                                      "I found NOFLASH_PSRAM AON, do misc_data_fW_update",
                                      "open rma"}
                    .contains(line);
    });
    EXPECT_THAT(lines,
                ElementsAre("notify 2", "open dfu", "I on_aon_up: called\n", "notify 2",
                            "I found NOFLASH_PSRAM AON, do misc_data_fW_update", "open rma"));
}

// The last packet's write takes nothing, and yet it is answered.
TEST_F(NoFlash, FinishThatReportsSuccessIsRememberedUntilThePowerGoes) {
    for (int packet = 0; packet < 3; ++packet) {
        platform().script_write(kMiscChannel, {});
    }
    scripted::Step nothing;
    nothing.accepted = 0;
    platform().script_write(kMiscChannel, nothing);
    start_until_sleep(2);
    EXPECT_EQ(platform().property("vendor.zt_aon.misc_update"), "1");
    EXPECT_THAT(actions(), Contains("boot status 3"));
    announce(4);
    EXPECT_EQ(channel_opens(kMiscChannel), 1u);
    EXPECT_EQ(channel_opens(kRmaChannel), 2u);
    announce(1);
    EXPECT_EQ(platform().property("vendor.zt_aon.misc_update"), "0");
}

TEST_F(NoFlash, MiscChannelThatCannotBeOpenedDoesNotKeepTheRmaServiceFromStarting) {
    platform().fail_opens(kMiscChannel, {ENODEV, ENODEV, ENODEV});
    start_until_sleep(5);
    EXPECT_THAT(
        course(),
        AllOf(Contains("D handleSHMResponse: Marlo SHM Updater:: Glink channel open failed"),
              Contains("D handleSHMResponse: ### Marlo Misc Data Resources Update Failed. "
                       "###"),
              Contains("open rma")));
    EXPECT_EQ(platform().property("vendor.zt_aon.misc_update"), "0");
}

}  // namespace
