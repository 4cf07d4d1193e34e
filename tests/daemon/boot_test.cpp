// SPDX-License-Identifier: Apache-2.0
// Start-up: what the daemon finds out before the first boot command, and the loop after it.
#include "daemon/marlo_deamon_log.h"
#include "tests/daemon/daemon_fixture.h"

using scripted::platform;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace {

const std::string kTwm = "/sys/class/pmic-lpm/pmic_twm_exit";
const std::string kSubtype = "/sys/devices/soc0/platform_subtype_id";

class Boot : public DaemonTest {};

TEST_F(Boot, PilDeviceIsTheDirectoryOrLinkWithTheCoprocessorsName) {
    platform().directory("/sys/class/remoteproc/", {{"remoteproc0", DT_REG},
                                                    {"other1", DT_DIR},
                                                    {"remoteproc2", DT_DIR},
                                                    {"remoteproc3", DT_LNK},
                                                    {"remoteproc4", DT_DIR},
                                                    {"remoteproc1", DT_LNK},
                                                    {"remoteproc5", DT_LNK}});
    platform().file("/sys/class/remoteproc//remoteproc0/name", "soc:zeno,rproc-marlo\n");
    platform().file("/sys/class/remoteproc//other1/name", "soc:zeno,rproc-marlo\n");
    platform().file("/sys/class/remoteproc//remoteproc3/name", "soc:zeno,rproc-modem\n");
    platform().file("/sys/class/remoteproc//remoteproc4/name", "adsp\n");
    EXPECT_EQ(daemon_->getMarloPILDevice(), 0);
    EXPECT_TRUE(logged("E Unable to open file /sys/class/remoteproc//remoteproc2/name"));
    // The buffer is cleared once: a shorter name leaves the end of the longer one before it.
    EXPECT_TRUE(logged("D read: adsp\neno,rproc-modem\n"));
    EXPECT_TRUE(logged("D PATH /sys/class/remoteproc//remoteproc1/state"));
    EXPECT_FALSE(logged("D Dir: remoteproc5"));
    EXPECT_EQ(platform().open_descriptors(), 0);
}

TEST_F(Boot, PilPathsAreBoundedToFiftyBytes) {
    const std::string longest = "remoteproc" + std::string(11, '1');
    const std::string cut = "remoteproc" + std::string(12, '2');
    platform().directory("/sys/class/remoteproc/", {{cut, DT_DIR}, {longest, DT_DIR}});
    platform().file("/sys/class/remoteproc//" + cut + "/name", "soc:zeno,rproc-marlo\n");
    platform().file("/sys/class/remoteproc//" + longest + "/name", "soc:zeno,rproc-marlo\n");
    EXPECT_EQ(daemon_->getMarloPILDevice(), 0);
    EXPECT_TRUE(logged("E Unable to open file /sys/class/remoteproc//" + cut + "/nam"));
    EXPECT_TRUE(logged("D PATH /sys/class/remoteproc//" + longest + "/stat"));
    EXPECT_EQ(daemon_->getMarloPILStatus(), 2);  // no such file
}

TEST_F(Boot, NamesAndStatesLongerThanTheirBufferAreCut) {
    platform().file("/sys/class/remoteproc//remoteproc1/name", std::string(300, 'n'));
    EXPECT_EQ(daemon_->getMarloPILDevice(), 1);
    EXPECT_TRUE(logged("D read: " + std::string(256, 'n')));
    platform().file("/sys/class/remoteproc//remoteproc1/name", "soc:zeno,rproc-marlo\n");
    daemon_->getMarloPILDevice();
    platform().file(kState, "running" + std::string(300, 's'));
    EXPECT_EQ(daemon_->getMarloPILStatus(), 1);
    EXPECT_TRUE(logged("D marlofw state: running" + std::string(249, 's')));
}

TEST_F(Boot, WithoutAPilDeviceTheStateIsUnknown) {
    platform().directory("/sys/class/remoteproc/", {});
    EXPECT_EQ(daemon_->getMarloPILDevice(), 1);
    EXPECT_EQ(daemon_->getMarloPILStatus(), 2);
    platform().remove("/sys/class/remoteproc/");
    EXPECT_EQ(daemon_->getMarloPILDevice(), 1);
}

TEST_F(Boot, PilStatusIsReadFromTheBeginningOfTheState) {
    daemon_->getMarloPILDevice();
    for (const auto& [text, status] : std::map<std::string, int>{
             {"running\n", 1}, {"offline\n", 0}, {"crashed\n", 2}, {"", 2}, {"runnin", 2}}) {
        platform().file(kState, text);
        EXPECT_EQ(daemon_->getMarloPILStatus(), status) << text;
    }
    platform().remove(kState);
    EXPECT_EQ(daemon_->getMarloPILStatus(), 2);
}

TEST_F(Boot, TwmExitIsPendingOnlyWhereTheStateIsOne) {
    EXPECT_FALSE(daemon_->isTWMexit());
    for (const auto& [text, pending] : std::map<std::string, bool>{
             {"1\n", true}, {"0\n", false}, {"garbage", false}, {"", false}, {"12", false}}) {
        platform().file(kTwm, text);
        EXPECT_EQ(daemon_->isTWMexit(), pending) << text;
    }
    EXPECT_TRUE(logged("D isTWMexit: Twm exit state = -1"));
    platform().file(kTwm, std::string(30, '1'));
    daemon_->isTWMexit();  // a longer text than the buffer holds

    platform().file(kTwm, "1\n");
    platform().script_read(kTwm, scripted::failure(EIO));
    EXPECT_FALSE(daemon_->isTWMexit());
    EXPECT_TRUE(logged("D isTWMexit: reading twm_exit fd failed"));
    EXPECT_EQ(platform().open_descriptors(), 0);
    platform().next_descriptor(0);
    EXPECT_FALSE(daemon_->isTWMexit());  // descriptor 0 counts as a failed open
}

TEST_F(Boot, PendingTwmExitComesFirstAndKeepsTheDump) {
    platform().file(kTwm, "1\n");
    platform().file(kSubtype, "1\n");
    start_until_sleep(1);
    EXPECT_THAT(actions(),
                ElementsAre("set persist.vendor.ssr.enable_ramdumps=1", "TWM exit", "save dump",
                            "set persist.vendor.ssr.enable_ramdumps=0", "sleep 1"));
}

TEST_F(Boot, PlatformSubtypeMustBeZero) {
    for (const auto& [text, result] : std::map<std::string, int>{
             {"0\n", 0}, {"1\n", -19}, {"12\n", -19}, {"01", -19}, {"", 0}, {"x", 0}}) {
        platform().file(kSubtype, text);
        EXPECT_EQ(daemon_->platformSubtypeCheck(), result) << text;
    }
    platform().script_read(kSubtype, scripted::failure(EIO));
    EXPECT_EQ(daemon_->platformSubtypeCheck(), -1);
    EXPECT_TRUE(logged("E Unable to read /sys/devices/soc0/platform_subtype_id\n"));
    platform().remove(kSubtype);
    EXPECT_EQ(daemon_->platformSubtypeCheck(), -1);
    EXPECT_TRUE(logged("E Unable to open /sys/devices/soc0/platform_subtype_id\n"));
    EXPECT_EQ(platform().open_descriptors(), 0);
}

TEST_F(Boot, UnsupportedPlatformIsNotBootedAndTheDaemonStays) {
    platform().file(kSubtype, "1\n");
    start_until_sleep(3);
    EXPECT_THAT(actions(), ElementsAre("sleep 1", "sleep 1", "sleep 1"));
    EXPECT_TRUE(logged("I platform subtype: -19 is not supported, skip marlo PIL"));
    EXPECT_EQ(g_daemon_state, DAEMON_INITIALISING);
}

TEST_F(Boot, ResetPropertyIsPolledEverySecondAndActedUponOnce) {
    platform().file(kSubtype, "1\n");
    platform().on_sleep([](int64_t second) {
        const std::map<int64_t, std::string> values = {{1, "2"}, {3, "1"}, {5, "1\n"}};
        if (const auto value = values.find(second); value != values.end()) {
            platform().property("vendor.marlo_reset", value->second);
        }
    });
    start_until_sleep(7);
    EXPECT_THAT(actions(), ElementsAre("sleep 1", "sleep 1", "sleep 1", "reset",
                                       "set vendor.marlo_reset=0", "sleep 1", "sleep 1", "reset",
                                       "set vendor.marlo_reset=0", "sleep 1", "sleep 1"));
    EXPECT_TRUE(logged("D \t***** Marlo Reset Start *****\t"));
}

TEST_F(Boot, LinesOfTheCoreDoNotDependOnTheLevel) {
    marlo_deamon_log::set_level(marlo_deamon_log::log_level::none);
    platform().file(kSubtype, "1\n");
    start_until_sleep(1);
    EXPECT_TRUE(logged("I Start Marlo Daemon"));
}

TEST_F(Boot, UpdaterSwitchesTheLogToItsTagAndToEveryClass) {
    EXPECT_THAT(platform().log_tags(), Contains("marlo_fw_updater"));
    EXPECT_EQ(platform().count("D marlo_fw_updater:"), 1u);
    EXPECT_EQ(platform().count(", Set log level: 4\n"), 1u);
}

}  // namespace
