// SPDX-License-Identifier: Apache-2.0
#include "sim/daemon_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(DaemonLog, LineOfLiblogIsTakenApart) {
    const LogLine line = parse_log_line("tag I 11-21 07:30:04  4603  4603 hello: a  b ");
    EXPECT_EQ(line.tag, "tag");
    EXPECT_EQ(line.priority, 'I');
    EXPECT_EQ(line.text, "hello: a  b ");
    EXPECT_EQ(parse_log_line("t E 11-21 07:30:04 4603 46031 ").text, "");
}

TEST(DaemonLog, AnyOtherLineIsAllText) {
    for (const char* text :
         {"", " ", "hello", "==4603==ERROR: AddressSanitizer: heap-use-after-free",
          "tag I 11-21 07:30:04 4603", "tag INFO 11-21 07:30:04 4603 4603 x",
          "tag I 11/21 07:30:04 4603 4603 x", "tag I 11-21 07:30:04 4603 x x"}) {
        const LogLine line = parse_log_line(text);
        EXPECT_EQ(line.priority, '?') << text;
        EXPECT_EQ(line.text, text);
    }
}

TEST(DaemonLog, LineBehindAMessageIsTheRestOfItUnlessARuntimeEndsTheDaemon) {
    const auto priorities = [](const std::vector<const char*>& lines) {
        LogParser parser;
        std::string all;
        for (const char* line : lines) {
            const LogLine parsed = parser.parse(line);
            all += parsed.priority;
            EXPECT_EQ(parsed.tag, parsed.priority == 'D' ? "tag" : "");
        }
        return all;
    };
    const char* message = "tag D 11-21 07:30:04  4603  4603 read: name";
    EXPECT_EQ(priorities({message, "s", message, "", message}), "DDDDD");
    EXPECT_EQ(priorities({"s", message, "s", "more"}), "?DD?");
    for (const char* report :
         {"a.cpp:1:2: runtime error: load of null pointer", "==46==ERROR: AddressSanitizer",
          "*** stack smashing detected ***", "free(): invalid pointer",
          "terminate called without an active exception"}) {
        EXPECT_EQ(priorities({message, report, "s"}), "D??") << report;
    }
}

TEST(DaemonLog, LinesArriveInPieces) {
    LineSplitter splitter;
    EXPECT_THAT(splitter.add("one\ntw"), ElementsAre("one"));
    EXPECT_THAT(splitter.add("o"), IsEmpty());
    EXPECT_THAT(splitter.add("\n\nrest"), ElementsAre("two", ""));
    EXPECT_EQ(splitter.rest(), "rest");
    EXPECT_EQ(splitter.rest(), "");
}

TEST(DaemonLog, LineWithoutEndIsCutNotCollected) {
    LineSplitter splitter;
    const std::vector<std::string> lines = splitter.add(std::string(1 << 20, 'x'));
    ASSERT_FALSE(lines.empty());
    size_t total = splitter.rest().size();
    for (const std::string& line : lines) {
        EXPECT_LE(line.size(), 65536u);
        total += line.size();
    }
    EXPECT_EQ(total, size_t{1} << 20);
}

TEST(DaemonLog, PrintableTextIsAsWideAsItIsLong) {
    EXPECT_EQ(printable("a\tb\n\033[31mc\177\xc3\xa9"), "a b  [31mc???");
}

}  // namespace
}  // namespace sim
