// SPDX-License-Identifier: Apache-2.0
#include "comhandler/client_wakelock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "daemon/marlo_deamon_log.h"
#include "platform/scripted/scripted_platform.h"

using scripted::platform;
using testing::ElementsAre;

namespace {

const std::string kLock = "/sys/power/wake_lock";
const std::string kUnlock = "/sys/power/wake_unlock";

class Wakelock : public testing::Test {
  protected:
    Wakelock() {
        scripted::reset_platform();
        marlo_deamon_log::set_level(marlo_deamon_log::log_level::verbose);
        platform().device(kLock);
        platform().device(kUnlock);
    }
};

TEST_F(Wakelock, KernelIsToldOnTheFirstTakeAndTheLastGiveBack) {
    client_wakelock wakelock;
    wakelock.get_n_locks(1);
    wakelock.get_n_locks(1);
    wakelock.put_n_locks(1);
    EXPECT_TRUE(platform().written(kUnlock).empty());
    wakelock.put_n_locks(1);
    // 18 characters and the terminating NUL.
    const auto name = scripted::bytes_of(std::string("MARLODAEMON_WAKEUP\0", 19));
    EXPECT_THAT(platform().written(kLock), ElementsAre(name));
    EXPECT_THAT(platform().written(kUnlock), ElementsAre(name));
    EXPECT_EQ(platform().count("V acquire:"), 1u);
    EXPECT_EQ(platform().count("sucess wakelock acquire:MARLODAEMON_WAKEUP"), 1u);
    EXPECT_EQ(platform().count("sucess release MARLODAEMON_WAKEUP wakelock"), 1u);
}

TEST_F(Wakelock, FailedWritesAreTriedAgainOnTheNextTransition) {
    client_wakelock wakelock;
    platform().script_write(kLock, scripted::failure(EINVAL));
    wakelock.get_n_locks(1);
    EXPECT_EQ(platform().count(
                  "write fail wakelock acquire:MARLODAEMON_WAKEUP, error = Invalid argument"),
              1u);
    wakelock.put_n_locks(1);  // nothing is held
    EXPECT_TRUE(platform().written(kUnlock).empty());
    wakelock.get_n_locks(1);
    EXPECT_EQ(platform().written(kLock).size(), 1u);

    platform().script_write(kUnlock, scripted::failure(EINVAL));
    wakelock.put_n_locks(1);
    EXPECT_EQ(platform().count(
                  "failed in write:MARLODAEMON_WAKEUP wake unlock, error = Invalid argument"),
              1u);
    wakelock.get_n_locks(1);  // still held by the kernel
    EXPECT_EQ(platform().written(kLock).size(), 1u);
    wakelock.put_n_locks(1);
    EXPECT_EQ(platform().written(kUnlock).size(), 1u);
}

TEST_F(Wakelock, CountNeitherWrapsNorGoesBelowZero) {
    client_wakelock wakelock;
    wakelock.put_n_locks(1);
    EXPECT_EQ(platform().count("_in_count 1 is larger than _accu_count 0"), 1u);
    wakelock.get_n_locks(-1);  // 2^32 - 1 references
    wakelock.get_n_locks(1);
    EXPECT_EQ(platform().count("_in_count 1 will overflow max of _accu_count 4294967295"), 1u);
    wakelock.put_n_locks(4294967295u);
    EXPECT_EQ(platform().written(kUnlock).size(), 1u);
}

TEST_F(Wakelock, WithoutTheKernelFilesTheCountIsKeptAllTheSame) {
    platform().remove(kLock);
    client_wakelock wakelock;
    EXPECT_EQ(platform().count("client_wakelock:"), 1u);
    EXPECT_EQ(platform().count(
                  "fatal error opening \"/sys/power/wake_lock\": No such file or directory\n"),
              1u);
    wakelock.get_n_locks(2);
    wakelock.put_n_locks(2);
    wakelock.get_n_locks(1);
    EXPECT_EQ(platform().count("Not able to open fd for wakeup:MARLODAEMON_WAKEUP"), 2u);
    EXPECT_EQ(platform().count("is larger than"), 0u);
}

TEST_F(Wakelock, WithoutTheUnlockFileTheLockStaysHeld) {
    platform().remove(kUnlock);
    client_wakelock wakelock;
    wakelock.get_n_locks(1);
    wakelock.put_n_locks(1);
    EXPECT_EQ(platform().count("E release:"), 1u);
    wakelock.get_n_locks(1);
    EXPECT_EQ(platform().written(kLock).size(), 1u);
}

}  // namespace
