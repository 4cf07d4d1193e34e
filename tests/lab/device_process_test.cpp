// SPDX-License-Identifier: Apache-2.0
#include "sim/lab/device_process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <string_view>

#include "sim/lab/device_message.h"

namespace sim {
namespace {

void say(int pipe, std::string_view text) {
    EXPECT_EQ(write(pipe, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// All lines until it has ended.
std::vector<std::string> lines_of(DeviceProcess& process) {
    std::vector<std::string> all;
    while (!process.has_ended()) {
        pollfd source = {process.descriptor(), POLLIN, 0};
        poll(&source, 1, -1);
        for (std::string& line : process.take_lines()) all.push_back(std::move(line));
    }
    return all;
}

TEST(DeviceProcess, TellsWhatItSaidAndHowItEnded) {
    DeviceProcess orderly([](int pipe) { say(pipe, "one\ntwo\nhalf a line"); });
    DeviceProcess killed([](int pipe) {
        say(pipe, "one\n");
        raise(SIGKILL);
    });
    EXPECT_THAT(lines_of(orderly), testing::ElementsAre("one", "two"));
    EXPECT_EQ(orderly.how_it_ended(), "ended with exit status 0");
    EXPECT_THAT(lines_of(killed), testing::ElementsAre("one"));
    EXPECT_EQ(killed.how_it_ended(), "was ended by SIGKILL");
}

TEST(DeviceProcess, HoldsNothingThatTheOthersHaveOpen) {
    const auto wait_for_ever = [](int) { pause(); };
    DeviceProcess first(wait_for_ever);
    DeviceProcess second(wait_for_ever);
    DeviceProcess third([&](int pipe) {
        const bool open =
            fcntl(first.descriptor(), F_GETFD) >= 0 || fcntl(second.descriptor(), F_GETFD) >= 0;
        say(pipe, open ? "open\n" : "closed\n");
    });
    EXPECT_THAT(lines_of(third), testing::ElementsAre("closed"));
    first.signal(SIGTERM);
    EXPECT_THAT(lines_of(first), testing::IsEmpty());
    EXPECT_EQ(first.how_it_ended(), "was ended by SIGTERM");
}

DeviceState told(const std::vector<std::string>& messages) {
    DeviceState state{1};
    for (const std::string& message : messages) {
        take_message(message.substr(0, message.size() - 1), state);
    }
    return state;
}

TEST(DeviceMessage, ArrivesAsItWasSent) {
    const DeviceEnd end = {
        DeviceEnd::Outcome::kFailed, "got \"\x1b\xff\"", {Time(1), Time(2), 3, 4}};
    const Progress present = {"images", 3, 10, {}, Time(7)};
    const DeviceState state = told({amount_message(5, 20, present), log_message("a\tb"),
                                    note_message(std::string(5000, 'x')), end_message(end)});
    EXPECT_TRUE(state.daemon_runs);
    EXPECT_EQ(state.bytes, 5u);
    EXPECT_EQ(state.part, 0.25);
    EXPECT_EQ(state.moving, "images");
    EXPECT_EQ(state.remaining, Time(7));
    EXPECT_THAT(state.log, testing::ElementsAre("a b"));
    ASSERT_EQ(state.notes.size(), 1u);
    EXPECT_LT(state.notes[0].size(), 2000u);
    ASSERT_TRUE(state.failed());
    EXPECT_EQ(state.end->why, "got \" ?\"");
    EXPECT_EQ(state.end->cost.daemon_cpu, Time(1));
    EXPECT_EQ(state.end->cost.coprocessor_cpu, Time(2));
    EXPECT_EQ(state.end->cost.daemon_memory, 3u);
    EXPECT_EQ(state.end->cost.coprocessor_memory, 4u);
}

TEST(DeviceMessage, ProgressNeverGoesBack) {
    // The flash was erased, and then there is more to do than was known, and all of it once more.
    const DeviceState state = told({amount_message(10, 20, {}), amount_message(12, 40, {}),
                                    amount_message(0, 0, {}), amount_message(2, 40, {})});
    EXPECT_EQ(state.bytes, 12u);
    EXPECT_EQ(state.part, 0.5);
    EXPECT_EQ(told({amount_message(50, 40, {})}).part, 1);
}

TEST(DeviceMessage, HalfOfOneChangesNothing) {
    const std::string whole = end_message({DeviceEnd::Outcome::kPassed, ""});
    for (const std::string& text : {whole.substr(0, whole.size() / 2), std::string("[1]\n"),
                                    std::string("\n"), std::string("{\"outcome\":\"lost\"}\n")}) {
        EXPECT_FALSE(told({text}).end) << text;
    }
}

}  // namespace
}  // namespace sim
