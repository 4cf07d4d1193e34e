// SPDX-License-Identifier: Apache-2.0
#include "sim/patience.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

using namespace std::chrono_literals;

TEST(Patience, EndsWhenNeitherBytesNorStepsMoveOn) {
    Patience patience(60s);
    EXPECT_EQ(patience.end(), Time(60s));
    patience.look(0, false, "load", 10s);
    EXPECT_EQ(patience.end(), Time(70s));  // another step
    patience.look(100, false, "load", 20s);
    EXPECT_EQ(patience.end(), Time(80s));  // more bytes
    patience.look(100, false, "load", 30s);
    EXPECT_EQ(patience.end(), Time(80s));
}

TEST(Patience, StartingAllOverAgainIsNotMovingOn) {
    Patience patience(60s);
    patience.look(100, false, "session ends", 10s);
    for (const uint64_t bytes : {0u, 50u, 100u, 0u, 99u}) {
        patience.look(bytes, false, "session ends", 50s);
    }
    EXPECT_EQ(patience.end(), Time(70s));
}

TEST(Patience, BusyCoprocessorMayTakeItsTime) {
    Patience patience(60s);
    patience.look(0, true, "", 1000s);
    EXPECT_EQ(patience.end(), Time(1060s));
}

TEST(Patience, WithoutALimitIsEndless) {
    Patience patience(std::nullopt);
    patience.look(0, false, "", 1000s);
    EXPECT_EQ(patience.end(), std::nullopt);
}

}  // namespace
}  // namespace sim
