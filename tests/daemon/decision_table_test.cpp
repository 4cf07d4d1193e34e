// SPDX-License-Identifier: Apache-2.0
// One situation a test: everything that the daemon does in it, from the first command to the last.
//
//   start                             test
//   HOST, comes up                    HostBootIsAccepted
//     variant without flash           HostBootWithoutFlashIsGivenItsMiscData
//     the same, has its misc data     HostBootWithoutFlashThatHasItsMiscData
//   HOST, no version                  HostBootWithoutAVersion
//   HOST, does not load               FailedHostBootHasNoFallBack
//   FLASH, update flag not 1          FlashBootWithoutTheUpdateFlagIsUpdatedWithoutLoading
//   FLASH, update flag 1
//     versions match                  FlashBootWithMatchingVersions
//     versions differ                 FlashBootWithDifferentVersions
//     no version                      FlashBootWithoutAVersionKeepsTheOldFirmware
//     does not load, HOST does        FailedFlashBootFallsBackToHostAndUpdates
//     does not load, nor does HOST    FailedFallBackIsTheEndOfTheBoot
//   later                             test
//   download finished                 FinishedDownloadSwitchesToFlash
//   no download channel               ChannelThatCannotBeOpenedLeavesTheCoprocessorInHostMode
//   power-up, -down without flash     PowerUpWithoutFlashPushesTheMiscDataAgain
//   the same, has its misc data       PowerUpWithTheMiscDataInPlaceOnlyStartsTheRmaService
//   power-up, -down of any other      PowerUpOfAnotherVariantChangesNothing
#include "tests/daemon/daemon_fixture.h"

using scripted::platform;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

class DecisionTable : public DaemonTest {
  protected:
    using Lines = std::vector<std::string>;

    static Lines joined(const std::vector<Lines>& parts) {
        Lines all;
        for (const Lines& part : parts) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }

    // The whole course: the start, which is always the same, and then these parts.
    void expect_course(const std::vector<Lines>& parts) {
        seen_ = course().size();
        EXPECT_THAT(course(), ElementsAreArray(joined({start_, joined(parts)})));
    }

    void skip_course() { seen_ = course().size(); }

    // What has been added since the last look at the course.
    void expect_further(const std::vector<Lines>& parts) {
        Lines further = course();
        further.erase(further.begin(), further.begin() + static_cast<ptrdiff_t>(seen_));
        seen_ += further.size();
        EXPECT_THAT(further, ElementsAreArray(joined(parts)));
    }

    // A co-processor of the variant without flash, with misc data of 3 and 2 bytes for it.
    void has_no_flash() {
        boot_mode_ = HOST;
        apps_version_ = "APPS.2 NOFLASH_PSRAM";
        platform().file("/vendor/bt_firmware/image/mrbtfw20.mbn", "abc");
        platform().file("/vendor/bt_firmware/image/mrnv20.bin", "de");
    }

    Lines version() const {
        return {"query version", "I KAPI Ver: 0.0.0\n", "I apps_tbx7700: " + apps_version_ + "\n",
                "I dsp_tbx7700: \n", "I bt_tbx7700: \n"};
    }

    // With an offline co-processor that has something to say of its version.
    Lines loaded_host_boot() const {
        return joined({host_boot_,
                       load_,
                       {"get mode", "set vendor.marlo.boot_complete=1"},
                       version(),
                       host_complete_});
    }

    // The version query fails for as long as it is tried.
    static Lines no_version() {
        Lines lines;
        for (int attempt = 1; attempt <= 14; ++attempt) {
            lines.push_back("query version = -11");
            lines.push_back(
                "D get_current_aon_fw_version: Marlo boot done, but get version "
                "fail-retry:" +
                std::to_string(attempt));
            lines.push_back("sleep 1");
        }
        lines.push_back("E Send SEND_IPC_CMD failed to get version");
        return lines;
    }

    const Lines start_ = {
        "I Start Marlo Daemon",
        "D Dir: .",
        "D Dir: remoteproc1",
        "D read: soc:zeno,rproc-marlo\n",
        "D PIL device: /sys/class/remoteproc//remoteproc1/name - soc:zeno,rproc-marlo\n",
        "D PATH /sys/class/remoteproc//remoteproc1/state",
        "E registerMarloSSREvent: called\n",
        "I Start Marlo loader\n",
        "I AON present and supported platform subtype: 0\n",
    };
    const Lines load_ = {
        "D marlofw state: offline\n", "SPI busy", "load", "sleep 1",
        "D marlofw state: running\n", "SPI free",
    };
    const Lines switch_to_host_ = {
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
    const Lines begin_download_ = {
        "open dfu",
        "28 bytes to dfu",
        "D handleDFUResponse: ### Getting Marlo DFU State. ###",
        "notify 2",
    };
    // Start, data, checksum of each file, and the finish.
    const Lines push_misc_data_ = {
        "D handleSHMResponse: Marlo SHM Updater:: Waiting for Glink channel open",
        "boot status 2",
        "set vendor.zt_aon.misc_update=0",
        "open custom_data",
        "D handleSHMResponse: ### Starting Marlo Misc Data Resources Update. ###",
        "boot status 2",
        "set vendor.zt_aon.misc_update=0",
        "16 bytes to custom_data",
        "19 bytes to custom_data",
        "20 bytes to custom_data",
        "16 bytes to custom_data",
        "18 bytes to custom_data",
        "20 bytes to custom_data",
        "16 bytes to custom_data",
        "sleep 2",
        "D handleSHMResponse: Marlo Misc Data Resources Update Done",
    };
    const Lines start_rma_ = {"D starting rma connection", "open rma"};
    const Lines no_flash_ = {"I found NOFLASH_PSRAM AON, do misc_data_fW_update"};
    const Lines host_boot_ = {"get mode", "I  Marlo is in HOST Mode!\n", "notify 0", "notify 4"};
    const Lines flash_boot_ = {"get mode = 1", "I  Marlo is in FLASH Mode!\n", "notify 1",
                               "notify 4"};
    const Lines host_complete_ = {"E Marlo boot complete in HOST Mode!", "notify 0",
                                  "boot status 1"};

  private:
    size_t seen_ = 0;
};

TEST_F(DecisionTable, HostBootIsAccepted) {
    boot_mode_ = HOST;
    start_until_sleep(2);
    expect_course({loaded_host_boot(), {"sleep 1"}});
    EXPECT_EQ(g_daemon_state, DAEMON_INITIALISED);
}

TEST_F(DecisionTable, HostBootWithoutFlashIsGivenItsMiscData) {
    has_no_flash();
    platform().property("vendor.zt_aon.misc_update", "2");  // anything but 1
    start_until_sleep(3);
    expect_course({loaded_host_boot(), no_flash_, push_misc_data_, start_rma_, {"sleep 1"}});
    // A boot does not count as a power-up: a power-down leaves the property alone.
    announce(1);
    expect_further(
        {{"set vendor.marlo.boot_complete=0", "I on_aon_down: called\n", "D marlo is power down"}});
}

TEST_F(DecisionTable, HostBootWithoutFlashThatHasItsMiscData) {
    has_no_flash();
    platform().property("vendor.zt_aon.misc_update", "1");
    start_until_sleep(2);
    expect_course({loaded_host_boot(), no_flash_, start_rma_, {"sleep 1"}});
}

TEST_F(DecisionTable, HostBootWithoutAVersion) {
    boot_mode_ = HOST;
    set_running(true);
    version_result_ = -EAGAIN;
    start_until_sleep(15);
    expect_course({host_boot_,
                   {"D marlofw state: running\n", "get mode", "set vendor.marlo.boot_complete=1"},
                   no_version(),
                   host_complete_,
                   {"I invaid version info", "sleep 1"}});
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
    expect_course({flash_boot_,
                   load_,
                   {"get mode = 1", "set vendor.marlo.boot_complete=1"},
                   version(),
                   {"E Marlo boot complete in FLASH Mode!", "notify 1", "I do fw_version_check",
                    "boot status 1", "notify 4", "sleep 1"}});
}

TEST_F(DecisionTable, FlashBootWithDifferentVersions) {
    platform().property("persist.vendor.zt_aon.dfu_update", "1");
    set_running(true);
    platform().file(kVersionFile, "\"apps_cochip\": \"APPS.3\",\n");
    start_until_sleep(2);
    expect_course(
        {flash_boot_,
         {"D marlofw state: running\n", "get mode = 1", "set vendor.marlo.boot_complete=1"},
         version(),
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
    expect_course(
        {flash_boot_,
         {"D marlofw state: running\n", "get mode = 1", "set vendor.marlo.boot_complete=1"},
         no_version(),
         {"E Marlo boot complete in FLASH Mode!", "notify 1",
          "E failed to get fw version! after re-tries, marlo is running with old firmware",
          "boot status 1", "sleep 1"}});
}

TEST_F(DecisionTable, FailedFlashBootFallsBackToHostAndUpdates) {
    platform().property("persist.vendor.zt_aon.dfu_update", "1");
    loads_to_fail_ = 1;
    start_until_sleep(3);
    expect_course(
        {flash_boot_,
         {"D marlofw state: offline\n", "SPI busy", "load = -5", "E Send MARLO_LOAD flag failed",
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
    expect_course(
        {flash_boot_,
         {"D marlofw state: offline\n", "SPI busy", "load", "sleep 1", "D marlofw state: offline\n",
          "get mode = 1", "set mode 0", "reset", "load", "sleep 1", "D marlofw state: offline\n",
          "E Marlo boot fail even on fallback to host from flash", "sleep 1"}});
    EXPECT_EQ(g_daemon_state, DAEMON_BOOT_FAILED);
}

TEST_F(DecisionTable, FailedHostBootHasNoFallBack) {
    boot_mode_ = HOST;
    loads_to_fail_ = 1;
    start_until_sleep(2);
    expect_course(
        {host_boot_,
         {"D marlofw state: offline\n", "SPI busy", "load = -5", "E Send MARLO_LOAD flag failed",
          "sleep 1", "get mode", "E Marlo boot failed in Host Mode.", "sleep 1"}});
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
    skip_course();
    report_dfu_state(3);  // the co-processor asks for the end of the session
    expect_further({{"28 bytes to dfu", "set persist.vendor.zt_aon.dfu_update=1",
                     "D handleDFUResponse: ### Marlo Firmware Update finished. ###",
                     "D handleDFUResponse: Changing boot mode to FLASH", "notify 3", "set mode 1",
                     "unload", "SPI busy", "soft reset", "load", "sleep 1",
                     "D marlofw state: running\n", "I Marlo boot complete in FLASH Mode!",
                     "notify 1", "set vendor.marlo.boot_complete=1", "SPI free", "boot status 1"}});
}

// Three attempts, and both the load and the state must be right.
TEST_F(DecisionTable, DownloadBeginsThoughTheSwitchToHostWasGivenUpWithoutAWord) {
    const Lines not_loaded = {"soft reset", "load = -5", "E Send MARLO_LOAD flag failed", "sleep 1",
                              "sleep 1"};
    const Lines not_running = {"soft reset", "load", "sleep 1", "D marlofw state: offline\n",
                               "sleep 1"};
    loads_to_fail_ = 2;
    stays_offline_ = true;
    start_until_sleep(7);
    expect_course({{"get mode = 1", "I  Marlo is in FLASH Mode!\n", "notify 1", "notify 2",
                    "I zt_aon.dfu_update is 0, do fW_update", "set mode 0", "unload", "SPI busy"},
                   not_loaded,
                   not_loaded,
                   not_running,
                   {"SPI free"},
                   begin_download_,
                   {"sleep 1"}});
}

TEST_F(DecisionTable, SwitchMaySucceedAtTheThirdAttempt) {
    start_until_sleep(2);
    loads_to_fail_ = 2;
    daemon_->changeBootmode(HOST);
    EXPECT_EQ(actions().back(), "notify 0");
    EXPECT_EQ(platform().count("soft reset") + platform().count("0xc0205609 cmd 0 "), 1u + 3u);
}

TEST_F(DecisionTable, ChannelThatCannotBeOpenedLeavesTheCoprocessorInHostMode) {
    platform().fail_opens(kDfuChannel, {ENODEV, ENODEV, ENODEV});
    start_until_sleep(5);
    expect_course(
        {{"get mode = 1", "I  Marlo is in FLASH Mode!\n", "notify 1", "notify 2",
          "I zt_aon.dfu_update is 0, do fW_update"},
         switch_to_host_,
         {"open dfu fails: 19", "sleep 1", "open dfu fails: 19", "sleep 1", "open dfu fails: 19",
          "sleep 1", "D handleDFUResponse: Marlo dfu channel open failed", "boot status 1",
          "D handleDFUResponse: MarloDownloader END", "notify 2", "sleep 1"}});
}

TEST_F(DecisionTable, PowerUpWithoutFlashPushesTheMiscDataAgain) {
    const Lines powered_up = {"D marlo is powered up", "set vendor.marlo.boot_complete=1",
                              "I on_aon_up: called\n"};
    has_no_flash();
    start_until_sleep(3);
    skip_course();
    announce(4);
    expect_further({powered_up, no_flash_, push_misc_data_, start_rma_});
    platform().property("vendor.zt_aon.misc_update", "2");
    announce(1);
    expect_further({{"set vendor.marlo.boot_complete=0", "I on_aon_down: called\n",
                     "set vendor.zt_aon.misc_update=0", "D marlo is power down"}});
    announce(4);
    expect_further({powered_up, no_flash_, push_misc_data_, start_rma_});
}

TEST_F(DecisionTable, PowerUpWithTheMiscDataInPlaceOnlyStartsTheRmaService) {
    has_no_flash();
    start_until_sleep(3);
    skip_course();
    platform().property("vendor.zt_aon.misc_update", "1");
    announce(4);
    expect_further(
        {{"D marlo is powered up", "set vendor.marlo.boot_complete=1", "I on_aon_up: called\n"},
         no_flash_,
         start_rma_});
}

TEST_F(DecisionTable, PowerUpOfAnotherVariantChangesNothing) {
    boot_mode_ = HOST;
    start_until_sleep(2);
    skip_course();
    announce(1);
    announce(4);
    expect_further(
        {{"set vendor.marlo.boot_complete=0", "I on_aon_down: called\n", "D marlo is power down",
          "D marlo is powered up", "set vendor.marlo.boot_complete=1", "I on_aon_up: called\n"}});
}

}  // namespace
