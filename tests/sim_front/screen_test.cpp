// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "sim/event.h"
#include "sim/plain_output.h"
#include "sim/screen_text.h"

namespace sim {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::StartsWith;

void phase(ScreenContent& content, Time time, const char* name, uint32_t image) {
    content.times.event({time, EventKind::kPhase, {{"phase", name}, {"image", image}}});
}

// In the middle of a download: one image done, one half done after two seconds, one to come.
ScreenContent download() {
    ScreenContent content;
    content.scenario = "update";
    content.now = 13s;
    content.status.boot_mode = kHostMode;
    content.status.running = content.status.spi_busy = true;
    content.status.erase_done = content.status.erase_total = 4096;
    content.status.images = {{3, "APPS", 2'000'000, 2'000'000},
                             {1, "flash.bin", 600'000, 1'200'000},
                             {2, "partition_1.bin", 0, 500}};
    phase(content, 10s, "session begins", 0);
    phase(content, 10s, "image", 3);
    phase(content, 11s, "image done", 3);
    phase(content, 11s, "image", 1);
    content.progress = Progress{"images", 2'600'000, 3'200'500, 400'000, 1500ms};
    content.log = {{'I', "tag", "first"}, {'E', "tag", "second"}};
    return content;
}

std::vector<std::string> texts(const std::vector<ScreenLine>& lines) {
    std::vector<std::string> result;
    for (const ScreenLine& line : lines) result.push_back(line.text);
    return result;
}

TEST(Screen, ShowsADownloadInEightyColumns) {
    EXPECT_THAT(
        texts(render(download(), {80, 24})),
        testing::ElementsAre(
            "marlo-sim update                                                          13.0 s",
            "boot mode HOST   running   SPI busy   boot status -   wakelock free",
            "all images        [############---]  81%   2.6 MB/3.2 MB   400.0 kB/s 1.5 s left",
            "erase             [###############] 100%   4.1 kB/4.1 kB",
            "3 APPS            [###############] 100%   2.0 MB/2.0 MB     2.0 MB/s       done",
            "1 flash.bin       [#######--------]  50% 600.0 kB/1.2 MB   300.0 kB/s",
            "2 partition_1.bin [---------------]   0%      0 B/500 B", "the daemon's log",
            "I first", "E second"));
}

TEST(Screen, ShowsWhatTheVariantWithoutFlashIsGivenInsteadOfADownload) {
    ScreenContent content = download();
    content.status.phase = Phase::kIdle;
    content.status.misc_data = {{0, {0, "type 0", 3000, 3000}}, {1, {1, "type 1", 250, 1000}}};
    content.status.memory_done = 500;
    content.status.memory_total = 1000;
    const std::vector<std::string> lines = texts(render(content, {80, 24}));
    EXPECT_THAT(std::vector(lines.begin() + 2, lines.begin() + 6),
                testing::ElementsAre("misc type 0       [###############] 100%   3.0 kB/3.0 kB",
                                     "misc type 1       [###------------]  25%    250 B/1.0 kB",
                                     "remote memory     [#######--------]  50%    500 B/1.0 kB",
                                     "the daemon's log"));
}

TEST(Screen, FitsAnyTerminalWhateverIsToBeShown) {
    ScreenContent content = download();
    content.scenario = std::string(300, 's');
    content.failed_checks = 12;
    content.now = 400h;
    for (uint32_t id = 10; id < 60; ++id) {
        content.status.images.push_back({id, "\033[31m\xc3\xa9" + std::string(90, 'n'), 1, ~0ull});
        phase(content, 1s, "image", id);
        content.log.push_back({'D', "tag", "\t\r\033[2J" + std::string(200, 'x')});
    }
    for (const ScreenSize size : {ScreenSize{80, 24}, {200, 60}, {60, 12}, {20, 5}, {1, 1}}) {
        const std::vector<std::string> lines = texts(render(content, size));
        EXPECT_LE(lines.size(), size.rows);
        for (const std::string& line : lines) {
            EXPECT_LE(line.size(), size.columns) << line;
            EXPECT_TRUE(std::all_of(line.begin(), line.end(), [](char c) {
                return c >= ' ' && c <= '~';
            })) << line;
        }
    }
}

TEST(Screen, ShowsTheImageThatMovesAndSomeLogWhenThereAreTooManyImages) {
    ScreenContent content = download();
    content.status.images.clear();
    phase(content, 1s, "erase", 0);
    phase(content, 1s, "session begins", 0);
    for (uint32_t id = 10; id < 60; ++id) {
        content.status.images.push_back({id, "image", id < 40 ? 10u : 0u, 10});
        if (id <= 40) phase(content, 1s, "image", id);
        if (id < 40) phase(content, 2s, "image done", id);
    }
    const std::vector<std::string> lines = texts(render(content, {80, 24}));
    EXPECT_THAT(lines, testing::Contains(StartsWith("40 image")));
    EXPECT_THAT(lines, testing::Contains("E second"));
}

class PlainOutputTest : public testing::Test {
  protected:
    void tell(EventKind kind, nlohmann::json fields) { output_.event({1500ms, kind, fields}); }

    std::ostringstream text_;
    PlainOutput output_{text_};
};

TEST_F(PlainOutputTest, PrintsOneLinePerStepWithoutControlCharacters) {
    tell(EventKind::kProperty, {{"name", "vendor.x"}, {"value", "\033[2Ja\r\nb"}});
    tell(EventKind::kPacket, {{"name", "IMG_OFFSET_REQ"}});
    tell(EventKind::kSysfs, {{"file", "wake_lock"}});
    tell(EventKind::kDaemon, {{"line", "\033[31m of the log"}});
    tell(EventKind::kPhase, {{"phase", "image done"}, {"image", 1}, {"name", "flash.bin"}});
    tell(EventKind::kPhase, {{"phase", "misc resource"}, {"type", 1}, {"size", 9}});
    tell(EventKind::kPhase, {{"phase", "rma half"}});
    tell(EventKind::kPhase, {{"phase", "state"}, {"state", "INIT"}});
    tell(EventKind::kChannel, {{"channel", "rma"}, {"change", "hung up"}});
    tell(EventKind::kFault, {{"fault", "restart"}, {"occasion", 2}, {"value", "100"}});
    tell(EventKind::kUevent, {{"marlo_event", 4}});
    EXPECT_EQ(text_.str(),
              "   1.500  property: vendor.x =  [2Ja  b\n"
              "   1.500  download: image done 1 flash.bin\n"
              "   1.500  misc data: resource 1\n"
              "   1.500  remote memory: half\n"
              "   1.500  download: state INIT\n"
              "   1.500  channel rma: hung up\n"
              "   1.500  fault: restart, occasion 2, value 100\n"
              "   1.500  co-processor: announces that it is powered up\n");
}

TEST_F(PlainOutputTest, TellsAStateOnlyWhenItsTextIsNew) {
    for (int i = 0; i < 2; ++i) {
        tell(EventKind::kIoctl, {{"command", "load"}, {"result", -5}});
        tell(EventKind::kState, {{"boot_mode", "HOST"}, {"running", true}, {"spi_busy", i == 0}});
    }
    EXPECT_EQ(text_.str(),
              "   1.500  command: load fails: Input/output error\n"
              "   1.500  co-processor: running, boot mode HOST\n"
              "   1.500  command: load fails: Input/output error\n");
}

TEST_F(PlainOutputTest, EndsAFailedSessionWithTheLogAndTheChecks) {
    for (int i = 0; i < 100; ++i) tell(EventKind::kDaemon, {{"line", std::to_string(i)}});
    output_.finish({}, 2s, {true, {"wrong CRC"}});
    EXPECT_THAT(text_.str(), HasSubstr("    99\n"));
    EXPECT_THAT(text_.str(), testing::Not(HasSubstr("    69\n")));
    EXPECT_THAT(text_.str(), HasSubstr("failed check: wrong CRC\n"));
}

}  // namespace
}  // namespace sim
