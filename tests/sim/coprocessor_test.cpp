// SPDX-License-Identifier: Apache-2.0
#include "sim/coprocessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <tuple>

#include "tests/sim/scripted_host.h"

namespace sim::test {
namespace {

using testing::HasSubstr;

constexpr uint32_t kBoot = 0xc0205609;

TEST(Coprocessor, LoadsInTheModeSetLast) {
    Host host;
    EXPECT_EQ(host.boot_command(6), kFlashMode);
    EXPECT_EQ(host.model.remoteproc_state(), "offline\n");
    EXPECT_EQ(host.model.open_channel(Channel::kDfu), -ENODEV);
    host.boot_in_host_mode();
    EXPECT_EQ(host.boot_command(6), kHostMode);
    EXPECT_EQ(host.model.remoteproc_state(), "running\n");
    EXPECT_EQ(host.boot_command(4), 0);
    EXPECT_TRUE(host.model.hung_up(Channel::kDfu));
    EXPECT_EQ(host.first_failure(), "");
}

TEST(Coprocessor, ReportsWrongCommands) {
    const std::tuple<uint32_t, std::vector<uint32_t>, const char*> table[] = {
        {0xc020560a, {0, 0, 0, 0, 0, 0, 0, 0}, "ioctl 0xc020560a with cmd 0"},
        {kBoot, {0, 0, 0, 0, 0, 2, 0, 0}, "with cmd 2 is no request"},
        {kBoot, {0, 0, 0, 0, 0, 3, 0}, "is no request"},
        {kBoot, {0, 7, 0, 0, 0, 4, 0, 0}, "unload: word at 4 expected 0, got 0x00000007"},
        {kBoot, {0, 0, 0, 0, 0, 6, 0, 5}, "get boot mode: word at 28 expected 0"},
        {kBoot, {2, 0, 0, 0, 0, 5, 0, 0}, "mode expected 0 or 1, got 2"},
        {kBoot, {4, 0, 0, 0, 0, 8, 0, 0}, "boot status: expected 1 to 3, got 4"},
        {kBoot, {0, 0, 0, 0, 0, 3, 0, 0}, "load while the SPI bus is not marked busy"},
        {0xc0205605, {0x1000, 0, 0, 0, 0, 20, 0, 0}, "reset: word at 24 expected 1"},
        {0xc0205605,
         {0x1000, 0, 0, 0, 0, 20, 1, 0},
         "data word expected 0x08000000, got 0x00000000"},
        {0xc0205608, {0, 0, 0, 0, 0, 3, 0, 0x8}, "0x00000008 is not the daemon's memory"},
    };
    for (const auto& [number, block, failure] : table) {
        Host host(running(kFlashMode));
        host.ioctl(number, block);
        EXPECT_THAT(host.first_failure(), HasSubstr(failure));
    }
}

TEST(Coprocessor, WritesTheVersionRecord) {
    Behaviour behaviour;
    behaviour.running = true;
    behaviour.versions = {0x01020003, std::string(150, 'a'), "dsp", "bt"};
    Host host(behaviour);
    host.memory.bytes.assign(512, 0x77);
    EXPECT_EQ(host.query_version(), 0);
    const char* record = reinterpret_cast<const char*>(host.memory.bytes.data());
    EXPECT_EQ(std::string(record + 4, 4), std::string("\x03\0\x02\x01", 4));
    EXPECT_STREQ(record + 8, std::string(99, 'a').c_str());
    EXPECT_STREQ(record + 108, "dsp");
    EXPECT_STREQ(record + 208, "bt");
    EXPECT_EQ(record[307], 0);
    EXPECT_EQ(record[308], 0x77);
}

// Each state and announcement, in their order.
std::vector<std::string> restarts_told(const Host& host) {
    std::vector<std::string> told;
    for (const Event& event : host.events.events) {
        if (event.kind == EventKind::kUevent) told.push_back(event.fields.dump());
        if (event.kind == EventKind::kState) {
            told.push_back(event.fields["running"] ? event.fields["boot_mode"] : "offline");
        }
    }
    return told;
}

TEST(Coprocessor, AnnouncesTheRestartsThatItIsAskedFor) {
    using namespace std::chrono_literals;
    Host host(running(kFlashMode, {"restart@2:70"}));
    ASSERT_EQ(host.model.open_channel(Channel::kDfu), 0);
    host.model.set_time(1s);
    host.model.restart_announced(100ms);
    EXPECT_TRUE(host.model.hung_up(Channel::kDfu));
    EXPECT_EQ(host.model.next_deadline(), std::nullopt);  // until the dead channel is closed
    host.model.close_channel(Channel::kDfu);
    EXPECT_EQ(host.model.next_deadline(), 1100ms);
    EXPECT_EQ(host.model.open_channel(Channel::kDfu), -ENODEV);
    host.boot_command(5, kHostMode);
    host.model.set_time(1100ms);
    // As a fault: with the second packet.
    ASSERT_EQ(host.model.open_channel(Channel::kDfu), 0);
    host.take_wakelock();
    host.erase_all();
    EXPECT_TRUE(host.model.hung_up(Channel::kDfu));
    host.model.set_time(1170ms);
    EXPECT_FALSE(host.model.status().running);
    host.model.close_channel(Channel::kDfu);
    host.model.set_time(1170ms);
    EXPECT_THAT(restarts_told(host),
                testing::ElementsAre("offline", R"({"marlo_event":1})", "offline", "HOST",
                                     R"({"marlo_event":4})", "offline", R"({"marlo_event":1})",
                                     "HOST", R"({"marlo_event":4})"));
    EXPECT_EQ(host.first_failure(), "");
}

TEST(Coprocessor, LoadDuringARestartOrNoPowerUpAtAll) {
    using namespace std::chrono_literals;
    Host host(running(kFlashMode));
    host.model.restart_announced(100ms);
    host.spi(true);
    host.boot_command(3);
    EXPECT_EQ(host.model.remoteproc_state(), "running\n");
    host.model.set_time(100ms);
    host.model.restart_announced({});
    host.model.set_time(1000h);
    EXPECT_EQ(host.model.remoteproc_state(), "offline\n");
    const auto told = restarts_told(host);
    EXPECT_EQ(std::count(told.begin(), told.end(), R"({"marlo_event":4})"), 1);
}

TEST(Coprocessor, JudgesTheWakelock) {
    Host host;
    host.take_wakelock();
    host.model.write_wake_unlock(kWakelock);
    EXPECT_EQ(host.first_failure(), "");
    host.model.write_wake_unlock(kWakelock);
    host.model.write_wake_lock(kWakelock.substr(0, 18));
    host.take_wakelock();
    host.take_wakelock();
    const auto& failures = host.model.failures();
    ASSERT_EQ(failures.size(), 3u);
    EXPECT_EQ(failures[0], "wake_unlock: the wakelock is not held");
    EXPECT_THAT(failures[1], HasSubstr("got 18 bytes \"MARLODAEMON_WAKEUP\""));
    EXPECT_EQ(failures[2], "wake_lock: the wakelock is held already");
}

}  // namespace
}  // namespace sim::test
