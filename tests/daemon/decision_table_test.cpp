// SPDX-License-Identifier: Apache-2.0
// One situation a test: everything that the daemon does in it, from the first command to the last.
#include "tests/daemon/daemon_fixture.h"

using scripted::platform;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

class DecisionTable : public DaemonTest {
  protected:
    // The whole course: the start, which is always the same, and then these parts.
    void expect_course(const std::vector<std::vector<std::string>>& parts) {
        std::vector<std::string> all = start_;
        for (const auto& part : parts) {
            all.insert(all.end(), part.begin(), part.end());
        }
        EXPECT_THAT(course(), ElementsAreArray(all));
    }

    const std::vector<std::string> start_ = {
        "I Start Marlo Daemon",
        "D Dir: .",
        "D Dir: remoteproc1",
        "D read: soc:zeno,rproc-marlo\n",
        "D PIL device: /sys/class/remoteproc//remoteproc1/name - soc:zeno,rproc-marlo\n",
        "D PATH /sys/class/remoteproc//remoteproc1/state",
        "I Start Marlo loader\n",
        "I AON present and supported platform subtype: 0\n",
    };
    const std::vector<std::string> version_ = {
        "query version",     "I KAPI Ver: 0.0.0\n", "I apps_tbx7700: APPS.2-full\n",
        "I dsp_tbx7700: \n", "I bt_tbx7700: \n",
    };
    const std::vector<std::string> load_ = {
        "D marlofw state: offline\n", "SPI busy", "load", "sleep 1",
        "D marlofw state: running\n", "SPI free",
    };
    const std::vector<std::string> switch_to_host_ = {
        "set mode 0",
        "unload",
        "SPI busy",
        "soft reset",
        "load",
        "sleep 1",
        "D marlofw state: running\n",
        "I Marlo boot complete in HOST Mode!",
        "notify 0",
    };
    // No table, so no partition to erase: the download begins with the state query.
    const std::vector<std::string> begin_download_ = {
        "D handleDFUResponse: ### Getting Marlo DFU State. ###",
        "notify 2",
    };
};

TEST_F(DecisionTable, HostBootIsAccepted) {
    boot_mode_ = HOST;
    start_until_sleep(2);
    expect_course(
        {{"get mode", "I  Marlo is in HOST Mode!\n", "notify 0", "notify 4"},
         load_,
         {"get mode", "set vendor.marlo.boot_complete=1"},
         version_,
         {"E Marlo boot complete in HOST Mode!", "notify 0", "boot status 1", "sleep 1"}});
    EXPECT_EQ(g_daemon_state, DAEMON_INITIALISED);
}

TEST_F(DecisionTable, HostBootThatIsRunningAlreadyIsNotLoaded) {
    boot_mode_ = HOST;
    set_running(true);
    start_until_sleep(1);
    EXPECT_THAT(actions(), ElementsAre("get mode", "notify 0", "notify 4", "get mode",
                                       "set vendor.marlo.boot_complete=1", "query version",
                                       "notify 0", "boot status 1", "sleep 1"));
}

TEST_F(DecisionTable, HostBootWithoutAVersion) {
    boot_mode_ = HOST;
    set_running(true);
    version_result_ = -EAGAIN;
    start_until_sleep(15);
    EXPECT_TRUE(logged("I invaid version info"));
    EXPECT_EQ(actions().at(actions().size() - 2), "boot status 1");
}

TEST_F(DecisionTable, FlashBootWithoutTheUpdateFlagIsUpdatedWithoutLoading) {
    platform().property("persist.vendor.zt_aon.dfu_update", "0");
    start_until_sleep(2);
    expect_course({{"get mode = 1", "I  Marlo is in FLASH Mode!\n", "notify 1", "notify 2",
                    "I zt_aon.dfu_update is 0, do fW_update"},
                   switch_to_host_,
                   begin_download_,
                   {"sleep 1"}});
}

TEST_F(DecisionTable, FlashBootWithMatchingVersions) {
    platform().property("persist.vendor.zt_aon.dfu_update", "1");
    start_until_sleep(2);
    expect_course({{"get mode = 1", "I  Marlo is in FLASH Mode!\n", "notify 1", "notify 4"},
                   load_,
                   {"get mode = 1", "set vendor.marlo.boot_complete=1"},
                   version_,
                   {"E Marlo boot complete in FLASH Mode!", "notify 1", "I do fw_version_check",
                    "boot status 1", "notify 4", "sleep 1"}});
}

TEST_F(DecisionTable, FlashBootWithDifferentVersions) {
    platform().property("persist.vendor.zt_aon.dfu_update", "1");
    set_running(true);
    platform().file(kVersionFile, "\"apps_cochip\": \"APPS.3\",\n");
    start_until_sleep(2);
    expect_course(
        {{"get mode = 1", "I  Marlo is in FLASH Mode!\n", "notify 1", "notify 4",
          "D marlofw state: running\n", "get mode = 1", "set vendor.marlo.boot_complete=1"},
         version_,
         {"E Marlo boot complete in FLASH Mode!", "notify 1", "I do fw_version_check",
          "D Version mis-match, switch2HOST, do fW_update", "notify 2"},
         switch_to_host_,
         begin_download_,
         {"sleep 1"}});
}

TEST_F(DecisionTable, FlashBootWithoutAVersionKeepsTheOldFirmware) {
    platform().property("persist.vendor.zt_aon.dfu_update", "1");
    set_running(true);
    version_result_ = -EAGAIN;
    start_until_sleep(15);
    EXPECT_TRUE(
        logged("E failed to get fw version! after re-tries, marlo is running with old firmware"));
    EXPECT_EQ(actions().at(actions().size() - 2), "boot status 1");
    EXPECT_EQ(boot_mode_, FLASH);
}

TEST_F(DecisionTable, FailedFlashBootFallsBackToHostAndUpdates) {
    platform().property("persist.vendor.zt_aon.dfu_update", "1");
    loads_to_fail_ = 1;
    start_until_sleep(3);
    expect_course(
        {{"get mode = 1", "I  Marlo is in FLASH Mode!\n", "notify 1", "notify 4",
          "D marlofw state: offline\n", "SPI busy", "load = -5", "E Send MARLO_LOAD flag failed",
          "sleep 1", "get mode = 1", "set mode 0", "reset", "load", "sleep 1",
          "D marlofw state: running\n", "E Fallback: Marlo boot complete in Host Mode, try DFU",
          "notify 0", "set vendor.marlo.boot_complete=1", "SPI free"},
         begin_download_,
         {"sleep 1"}});
    EXPECT_EQ(g_daemon_state, DAEMON_INITIALISED);
}

TEST_F(DecisionTable, FailedFallBackIsTheEndOfTheBoot) {
    platform().property("persist.vendor.zt_aon.dfu_update", "1");
    stays_offline_ = true;  // the driver says loaded, the state says otherwise
    start_until_sleep(3);
    EXPECT_THAT(actions(),
                ElementsAre("get mode = 1", "notify 1", "notify 4", "SPI busy", "load", "sleep 1",
                            "get mode = 1", "set mode 0", "reset", "load", "sleep 1", "sleep 1"));
    EXPECT_TRUE(logged("E Marlo boot fail even on fallback to host from flash"));
    EXPECT_EQ(g_daemon_state, DAEMON_BOOT_FAILED);
}

TEST_F(DecisionTable, FailedHostBootHasNoFallBack) {
    boot_mode_ = HOST;
    loads_to_fail_ = 1;
    start_until_sleep(2);
    EXPECT_THAT(actions(), ElementsAre("get mode", "notify 0", "notify 4", "SPI busy", "load = -5",
                                       "sleep 1", "get mode", "sleep 1"));
    EXPECT_TRUE(logged("E Marlo boot failed in Host Mode."));
    EXPECT_EQ(g_daemon_state, DAEMON_INITIALISING);
}

TEST_F(DecisionTable, UnknownBootModeIsLoadedWithoutAWord) {
    boot_mode_ = 2;
    start_until_sleep(2);
    EXPECT_THAT(actions(), ElementsAre("get mode = 2", "SPI busy", "load", "sleep 1", "SPI free",
                                       "get mode = 2", "set vendor.marlo.boot_complete=1",
                                       "query version", "sleep 1"));
    EXPECT_TRUE(logged("E Unknown marlo boot mode"));
}

TEST_F(DecisionTable, FinishedDownloadSwitchesToFlash) {
    start_until_sleep(2);
    const size_t before = course().size();
    report_dfu_state(3);  // the co-processor asks for the end of the session
    std::vector<std::string> rest = course();
    rest.erase(rest.begin(), rest.begin() + static_cast<ptrdiff_t>(before));
    EXPECT_THAT(rest, ElementsAre("set persist.vendor.zt_aon.dfu_update=1",
                                  "D handleDFUResponse: ### Marlo Firmware Update finished. ###",
                                  "D handleDFUResponse: Changing boot mode to FLASH", "notify 3",
                                  "set mode 1", "unload", "SPI busy", "soft reset", "load",
                                  "sleep 1", "D marlofw state: running\n",
                                  "I Marlo boot complete in FLASH Mode!", "notify 1",
                                  "set vendor.marlo.boot_complete=1", "SPI free", "boot status 1"));
}

TEST_F(DecisionTable, SwitchIsGivenUpSilentlyAfterThreeAttempts) {
    start_until_sleep(2);
    loads_to_fail_ = 3;
    const size_t before = actions().size();
    daemon_->changeBootmode(FLASH);
    std::vector<std::string> rest = actions();
    rest.erase(rest.begin(), rest.begin() + static_cast<ptrdiff_t>(before));
    EXPECT_THAT(
        rest, ElementsAre("set mode 1", "unload", "SPI busy", "soft reset", "load = -5", "sleep 1",
                          "sleep 1", "soft reset", "load = -5", "sleep 1", "sleep 1", "soft reset",
                          "load = -5", "sleep 1", "sleep 1", "SPI free"));
}

TEST_F(DecisionTable, SwitchNeedsTheStateToBeRunningAsWell) {
    start_until_sleep(2);
    stays_offline_ = true;
    daemon_->changeBootmode(FLASH);
    EXPECT_EQ(actions().back(), "SPI free");
    EXPECT_EQ(scripted::platform().transcript({"sleep"}).size(), 2u + 6u);
}

TEST_F(DecisionTable, ChannelThatCannotBeOpenedLeavesTheCoprocessorInHostMode) {
    platform().fail_opens(kDfuChannel, {ENODEV, ENODEV, ENODEV});
    start_until_sleep(5);
    std::vector<std::string> rest = course();
    const auto first = std::find(rest.begin(), rest.end(), "notify 0");
    rest.erase(rest.begin(), first);
    EXPECT_THAT(rest,
                ElementsAre("notify 0", "sleep 1", "sleep 1", "sleep 1",
                            "D handleDFUResponse: Marlo dfu channel open failed", "boot status 1",
                            "D handleDFUResponse: MarloDownloader END", "notify 2", "sleep 1"));
    EXPECT_EQ(boot_mode_, HOST);
}

}  // namespace
