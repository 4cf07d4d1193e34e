// SPDX-License-Identifier: Apache-2.0
#include "sim/progress.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <sstream>

#include "sim/event.h"
#include "sim/plain_output.h"
#include "tests/sim/scripted_host.h"

namespace sim::test {
namespace {

using namespace std::chrono_literals;

double seconds(Time time) {
    return std::chrono::duration<double>(time).count();
}

// What a line "  1.234  progress: WHAT 12%, ..., 3.4 s left" says.
struct Told {
    double at;
    std::string what;
    int percent;
    double left;
};

std::vector<Told> told_by(const std::string& text) {
    static const std::regex kLine(
        R"( *([0-9.]+)  progress: (.*) (\d+)%.* (\d+:)?([0-9.]+)( s)? left)");
    std::vector<Told> result;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (!std::regex_match(line, match, kLine)) continue;
        const double minutes = match[4].matched ? std::stod(match[4]) : 0;
        result.push_back({std::stod(match[1]), match[2], std::stoi(match[3]),
                          60 * minutes + std::stod(match[5])});
    }
    return result;
}

// The longest time without a line from the first byte on, the channel's absence left out.
double longest_silence(const std::string& text) {
    double longest = 0;
    std::optional<double> last;
    bool channel_away = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const double at = std::stod(line);
        if (last && !channel_away) longest = std::max(longest, at - *last);
        if (line.ends_with("channel dfu: opened")) channel_away = false;
        if (line.ends_with("channel dfu: closed")) channel_away = true;
        if (last || line.ends_with("session begins")) last = at;
    }
    return longest;
}

// A download in virtual time, shown as in a pipe.
class ShownDownload {
  public:
    explicit ShownDownload(const Behaviour& behaviour) : host_(behaviour) {
        host_.boot_in_host_mode();
        host_.erase_all();
        now_ = host_.events.events.back().time;
        host_.ask_state();
        while (host_.model.status().phase != Phase::kFinished && now_ < 10min) turn();
    }

    std::string text() const { return text_.str(); }
    double end() const { return seconds(now_); }

  private:
    // As the session does: at the next deadline, or after 50 ms if nothing happens before.
    void turn() {
        const auto deadline = host_.model.next_deadline();
        now_ = std::min(now_ + 50ms, deadline.value_or(now_ + 50ms));
        host_.model.set_time(now_);
        if (host_.model.hung_up(Channel::kDfu)) host_.model.close_channel(Channel::kDfu);
        if (!host_.model.is_open(Channel::kDfu)) {
            if (host_.model.open_channel(Channel::kDfu) == 0) host_.ask_state();
        }
        while (host_.model.readable(Channel::kDfu)) host_.answer(1);
        for (; shown_ < host_.events.events.size(); ++shown_) {
            output_.event(host_.events.events[shown_]);
        }
        output_.refresh(host_.model.status(), now_);
    }

    Host host_;
    std::ostringstream text_;
    PlainOutput output_{text_};
    size_t shown_ = 0;
    Time now_{0};
};

class ProgressOfADownload : public testing::TestWithParam<const char*> {};

TEST_P(ProgressOfADownload, IsNeverSilentNeverGoesBackAndKnowsItsEnd) {
    Behaviour behaviour = running(kHostMode);
    if (*GetParam()) behaviour.faults.push_back(parse_fault(GetParam()));
    behaviour.flash_rate = 40'000;
    const ShownDownload download(behaviour);
    std::vector<Told> told = told_by(download.text());
    std::erase_if(told, [](const Told& line) { return line.what != "images"; });
    ASSERT_GT(told.size(), 20u) << download.text();
    EXPECT_LE(longest_silence(download.text()), 0.25) << download.text();
    for (size_t i = 1; i < told.size(); ++i) {
        const Told& line = told[i];
        EXPECT_GE(line.percent, told[i - 1].percent) << line.at;
        if (line.percent < 50) continue;
        const double true_left = download.end() - line.at;
        EXPECT_NEAR(line.left, true_left, 0.2 * true_left + 0.05) << line.at;  // as it is rounded
    }
    EXPECT_GE(told.back().percent, 95);
}

INSTANTIATE_TEST_SUITE_P(, ProgressOfADownload,
                         testing::Values("", "hang-up-at-fragment@30:700",
                                         "hang-up-at-fragment@5:3000"));

TEST(Progress, BelievesANewRateSoonAndAWaveringOneNot) {
    constexpr uint64_t kSize = 10'000'000;
    std::mt19937 random(1);
    std::uniform_real_distribution<double> waver(0.5, 1.5);
    Status status;
    status.phase = Phase::kImages;
    status.images = {{3, "APPS", 0, kSize}};
    ProgressMeter meter;
    std::vector<std::pair<Time, Time>> second_half;  // when, and what remained then
    Time now{0};
    meter.look(status, now);
    for (uint64_t& done = status.images[0].done; done < kSize;) {
        now += 50ms;
        const double rate = done < kSize / 4 ? 250'000 : 500'000;  // of bytes a second
        done = std::min(kSize, done + static_cast<uint64_t>(rate * 0.05 * waver(random)));
        const auto progress = meter.look(status, now);
        ASSERT_TRUE(progress && progress->remaining);
        if (done >= kSize / 2) second_half.emplace_back(now, *progress->remaining);
    }
    for (const auto& [when, remaining] : second_half) {
        EXPECT_NEAR(seconds(remaining), seconds(now - when), 0.2 * seconds(now - when) + 0.05);
    }
}

TEST(Progress, TellsFewerBytesOnlyWhenADownloadBeginsAnew) {
    Status status;
    status.phase = Phase::kImages;
    status.images = {{3, "APPS", 600, 1000}, {1, "flash.bin", 0, 1000}};
    ProgressMeter meter;
    EXPECT_EQ(meter.look(status, 1s)->done, 600u);
    status.images[0].done = 0;
    EXPECT_EQ(meter.look(status, 2s)->done, 600u);
    meter.event({3s, EventKind::kPhase, {{"phase", "erase"}}});
    EXPECT_EQ(meter.look(status, 4s)->done, 0u);
    status.phase = Phase::kFinished;
    EXPECT_FALSE(meter.look(status, 5s));
}

}  // namespace
}  // namespace sim::test
