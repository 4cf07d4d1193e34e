// SPDX-License-Identifier: Apache-2.0
// What a report holds: as much as a page can show, and nothing that the page takes for its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/event.h"
#include "sim/report/report.h"

namespace sim {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::ordered_json;
using ::testing::HasSubstr;
using ::testing::Not;

struct Told {
    ReportData data;
    Timeline timeline{data};
    Time now{0};

    void tell(EventKind kind, nlohmann::json fields) { timeline.event({now, kind, fields}); }
    void log(const std::string& line) { tell(EventKind::kDaemon, {{"line", line}}); }
    void packet(const char* direction, nlohmann::json fields) {
        fields["direction"] = direction;
        fields["channel"] = "dfu";
        tell(EventKind::kPacket, fields);
    }
    Json json(Ending ending = {}) {
        ending.time = now;
        timeline.close(now);
        return data.json(ending, "today");
    }
};

Json lane(const Json& report, const std::string& name) {
    for (const Json& lane : report["lanes"]) {
        if (lane["name"] == name) return lane;
    }
    return nullptr;
}

TEST(ReportPage, NothingThatWasToldBreaksOutOfTheData) {
    Told told;
    const std::string evil = "</script><!-- <img src=x> & \xe2\x80\xa8\xe2\x80\xa9 \"DATA\" \xff";
    told.log("tag E 11-22 04:00:00     1     1 " + evil);
    told.tell(EventKind::kProperty, {{"name", evil}, {"value", evil}});
    Ending ending;
    ending.name = ending.command = ending.verdict.why = evil;
    const Json data = told.json(ending);
    const std::string text = script_text(data);
    EXPECT_EQ(text.find_first_of("<>&"), text.npos);
    for (const char c : text) EXPECT_TRUE(c >= ' ' && c <= '~') << "not plain: " << int{c};
    EXPECT_THAT(Json::parse(text)["why"].get<std::string>(),
                HasSubstr("</script><!-- <img src=x> & \xe2\x80\xa8\xe2\x80\xa9 \"DATA\" "));

    const std::string page = report_page(data);
    const size_t at = page.find(text);
    ASSERT_NE(at, page.npos);
    EXPECT_EQ(page.find(text, at + 1), page.npos);
    for (const char* place : {"/* STYLE */", ">\"DATA\"<", "/* SCRIPT */"}) {
        EXPECT_THAT(page, Not(HasSubstr(place)));
    }
    size_t elements = 0;
    for (size_t end = 0; (end = page.find("</script", end)) != page.npos; ++end) ++elements;
    EXPECT_EQ(elements, 2u) << "the data and the script";
    EXPECT_THAT(page, Not(HasSubstr("http://www.w3.org/1999")));
}

TEST(ReportData, StaysSmallHoweverLongTheRun) {
    Told told;
    constexpr int kMany = 30'000;
    for (int i = 0; i < kMany; ++i, told.now += 1us * (1 + i % 1000)) {
        told.packet("from daemon", {{"length", 10}});
        told.tell(EventKind::kSysfs, {{"file", i % 2 ? "wake_unlock" : "wake_lock"}, {"text", ""}});
        told.tell(EventKind::kCheck, {{"failure", std::string(600, 'x')}});
        told.log("tag D 11-22 04:00:00     1     1 " + std::string(1100, 'y'));
    }
    told.log("tag W 11-22 04:00:00     1     1 the last line");
    const Json report = told.json();
    EXPECT_LT(report_page(report).size(), 12'000'000u);

    const Json channel = lane(report, "Channel dfu");
    uint64_t bytes = 0;
    for (const Json& bucket : channel["rates"][0]["buckets"]) bytes += bucket[1].get<uint64_t>();
    EXPECT_EQ(bytes, 10u * kMany);
    const Json wakelock = lane(report, "Wakelock");
    uint64_t held = 0;
    for (const Json& span : wakelock["spans"]) held += span[4].get<uint64_t>();
    EXPECT_EQ(held, kMany / 2u);
    const Json checks = lane(report, "Failed checks");
    EXPECT_EQ(checks["marks"].size() + checks["gap"][2].get<uint64_t>(), uint64_t{kMany});
    uint64_t lines = 0;
    uint64_t left_out = 0;
    for (const Json& line : report["log"]) {
        line.size() == 2 ? left_out += line[1].get<uint64_t>() : ++lines;
    }
    EXPECT_EQ(lines + left_out, kMany + 1u);
    EXPECT_GT(left_out, 0u);
    EXPECT_EQ(report["log"].back()[3], "the last line");
}

TEST(SpanList, JoinsAgainAndAgain) {
    SpanList list(10);
    for (int i = 0; i < 10'000; ++i) list.add({i * 10us, i * 10us + 4us, i % 2 ? "a" : "b"});
    EXPECT_LE(list.spans().size(), 10u);
    uint64_t count = 0;
    Time filled{0};
    for (const Span& span : list.spans()) {
        count += span.count;
        filled += span.filled;
    }
    EXPECT_EQ(count, 10'000u);
    EXPECT_EQ(filled, 40ms);
    EXPECT_EQ(list.spans().front().begin, 0us);
    EXPECT_EQ(list.spans().front().text, "several");
    EXPECT_EQ(list.spans().back().end, 99'994us);
}

TEST(ReportData, TransferTellsWhatWasSentAndHowFarItCame) {
    Told told;
    const auto image = [&told](const char* phase) {
        told.tell(EventKind::kPhase, {{"phase", phase}, {"image", 3}, {"name", "APPS"}});
    };
    told.tell(EventKind::kPhase, {{"phase", "erase"}});
    told.now = 1s;
    image("image");
    told.packet("from daemon", {{"name", "IMG_INFO_RESP"}, {"size", 150}, {"length", 28}});
    for (int i = 0; i < 3; ++i) {
        told.packet("from daemon", {{"name", "IMG_OFFSET_RESP"}, {"fragment", 60}, {"length", 88}});
    }
    told.now = 3s;
    image("image done");
    image("image");
    told.now = 4s;
    told.tell(EventKind::kUevent, {{"marlo_event", kPoweredDown}});
    const Json report = told.json();
    const Json& transfers = report["transfers"];
    ASSERT_EQ(transfers.size(), 2u);
    EXPECT_EQ(transfers[0]["size"], 150);
    EXPECT_EQ(transfers[0]["bytes"], 180);
    EXPECT_EQ(transfers[0]["end"].get<int64_t>() - transfers[0]["begin"].get<int64_t>(),
              Time{2s}.count());
    EXPECT_TRUE(transfers[0]["finished"]);
    EXPECT_TRUE(transfers[1]["size"].is_null());
    EXPECT_FALSE(transfers[1]["finished"]);
    const Json spans = lane(report, "Download")["spans"];
    ASSERT_EQ(spans.size(), 3u);
    EXPECT_EQ(spans[0][2], "erase");
    EXPECT_EQ(spans[0][1], Time{1s}.count());
}

}  // namespace
}  // namespace sim
