// SPDX-License-Identifier: Apache-2.0
#include "sim/lab/lab_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace sim {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

DeviceState ended(unsigned number, DeviceEnd end) {
    DeviceState device{number};
    device.started = true;
    device.begun = 1s;
    device.ended = 4s;
    device.end = std::move(end);
    return device;
}

DeviceState passed(unsigned number) {
    return ended(number, {DeviceEnd::Outcome::kPassed, "", {10ms, 30ms, 4'000'000, 6'000'000}});
}

DeviceState failed(unsigned number) {
    DeviceState device = ended(number, {DeviceEnd::Outcome::kFailed, "no reason"});
    device.log = {"log of " + std::to_string(number)};
    return device;
}

DeviceState under_way(unsigned number, double part) {
    DeviceState device{number};
    device.started = true;
    device.bytes = 1000;
    device.part = part;
    device.moving = "images";
    device.remaining = 90s;
    return device;
}

TEST(LabText, CountsWhatEndedAndWhatMoved) {
    EXPECT_EQ(progress_text({passed(1), under_way(2, 0.5), failed(3), {4}}),
              "62% moved, 1.0 kB; 2 of 4 devices ended");
    EXPECT_EQ(progress_text({under_way(1, 0.999)}), "99% moved, 1.0 kB; 0 of 1 device ended");
    EXPECT_EQ(end_text(passed(7)),
              "device 7 passed in 3.0 s; CPU 0.010 s (daemon) and 0.030 s (co-processor), memory "
              "4.0 MB and 6.0 MB");
    EXPECT_EQ(end_text(failed(8)), "device 8 failed after 3.0 s: no reason");
}

TEST(LabText, SumsUpTheCostsThatAreKnown) {
    DeviceState larger = passed(2);
    larger.end->cost = {30ms, 50ms, 0, 7'000'000};
    EXPECT_EQ(summary_text({passed(1), larger, failed(3), {4}}, 5s),
              "4 devices: 2 passed, 1 failed, 1 not done; 5.0 s; each took on average 0.060 s of "
              "CPU (daemon 0.020 s, co-processor 0.040 s), and at most 4.0 MB + 7.0 MB of memory");
    EXPECT_EQ(summary_text({failed(1)}, 5s), "1 device: 0 passed, 1 failed; 5.0 s");
}

TEST(LabText, NamesFailedDevicesInBoundedLength) {
    EXPECT_EQ(failed_numbers({failed(1), passed(2), failed(3), failed(4), failed(5), {6}}),
              "4 failed: 1, 3-5");
    DeviceStates every_other;
    for (unsigned number = 1; number <= 1000; ++number) {
        every_other.push_back(number % 2 ? failed(number) : passed(number));
    }
    const std::string text = failed_numbers(every_other);
    EXPECT_THAT(text, testing::StartsWith("500 failed: 1, 3, 5, "));
    EXPECT_THAT(text, testing::EndsWith(", 39, ..."));
    EXPECT_THAT(failure_texts({passed(1), failed(2), failed(3), failed(4), failed(5)}),
                ElementsAre("device 2: no reason", "  log of 2", "device 3: no reason",
                            "  log of 3", "2 more failed, not shown"));
}

TEST(LabText, DrawsWhatFitsWithTheFailedOnesFirst) {
    const DeviceStates devices = {passed(1), under_way(2, 0.25), {3}, failed(4), under_way(5, 0)};
    std::vector<std::string> texts;
    for (const ScreenLine& line : render("title", devices, 2s, {76, 7})) {
        texts.push_back(line.text);
    }
    EXPECT_THAT(texts,
                ElementsAre("title   2.0 s", "all         [############----------------]  45%",
                            "45% moved, 2.0 kB; 2 of 5 devices ended",
                            "device 4 failed after 3.0 s: no reason",
                            "device 2    [#######---------------------]  25% images, 1:30 left",
                            "device 5    [----------------------------]   0% images, 1:30 left",
                            "and 2 more"));
    for (size_t rows = 0; rows < 10; ++rows) {
        const std::vector<ScreenLine> lines = render("title", devices, 2s, {20, rows});
        EXPECT_LE(lines.size(), rows);
        for (const ScreenLine& line : lines) EXPECT_LE(line.text.size(), 20u);
    }
    EXPECT_THAT(render("title", devices, 2s, {76, 20}).back().text, HasSubstr("device 1 passed"));
}

}  // namespace
}  // namespace sim
