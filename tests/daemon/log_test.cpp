// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "daemon/marlo_deamon_log.h"
#include "platform/scripted/scripted_platform.h"

using marlo_deamon_log::log_level;
using scripted::platform;
using testing::ElementsAre;

namespace {

int g_evaluations = 0;
int counted() {
    return ++g_evaluations;
}

struct NamedAfterItsClass {
    NamedAfterItsClass() { MARLO_LOG(error, "made"); }
};

void emit_one_of_each_class() {
    MARLO_LOG(error, "e %d", counted());
    MARLO_LOG(info, "i %d", counted());
    MARLO_LOG(debug, "d %d", counted());
    MARLO_LOG(verbose, "v %d", counted());
}

class Log : public testing::Test {
  protected:
    Log() {
        scripted::reset_platform();
        marlo_deamon_log::set_tag("MarloDaemon");
        g_evaluations = 0;
    }

    // The log without the source lines.
    static std::vector<std::string> log() {
        std::vector<std::string> lines = platform().log();
        for (std::string& line : lines) {
            line = std::regex_replace(line, std::regex(":\\d+, "), ": ");
        }
        return lines;
    }
};

TEST_F(Log, LevelAdmitsItsClassesAndEvaluatesNothingElse) {
    const int copies = marlo_deamon_log::get_stderr_logging() ? 2 : 1;
    EXPECT_EQ(marlo_deamon_log::get_level(), log_level::info);  // as the process starts
    testing::internal::CaptureStderr();
    for (const log_level level : {log_level::none, log_level::error, log_level::info,
                                  log_level::debug, log_level::verbose}) {
        scripted::reset_platform();
        g_evaluations = 0;
        marlo_deamon_log::set_level(level);
        emit_one_of_each_class();
        EXPECT_EQ(platform().log().size(), static_cast<size_t>(level));
        EXPECT_EQ(g_evaluations, static_cast<int>(level) * copies);
    }
    testing::internal::GetCapturedStderr();
    marlo_deamon_log::set_level(log_level::info);
}

TEST_F(Log, LineHasPriorityTagFunctionAndSourceLine) {
    testing::internal::CaptureStderr();
    MARLO_LOG(info, "level: %d\n", 4);
    const int line = __LINE__ - 1;
    marlo_deamon_log::set_tag("other");
    NamedAfterItsClass();
    MARLO_LOG_FOR("glink_read", error, "partial");
    const std::string copy = testing::internal::GetCapturedStderr();

    EXPECT_EQ(platform().log()[0], "I TestBody:" + std::to_string(line) + ", level: 4\n");
    EXPECT_THAT(log(), ElementsAre("I TestBody: level: 4\n", "E NamedAfterItsClass: made",
                                   "E glink_read: partial"));
    EXPECT_THAT(platform().log_tags(), ElementsAre("MarloDaemon", "other"));
    // The copy's newline comes on top of one that the format has.
    const std::string first_copy = "TestBody:" + std::to_string(line) + ", level: 4\n\n";
    EXPECT_EQ(copy.starts_with(first_copy), marlo_deamon_log::get_stderr_logging()) << copy;
    EXPECT_EQ(copy.empty(), !marlo_deamon_log::get_stderr_logging());
}

}  // namespace
