// SPDX-License-Identifier: Apache-2.0
#include "sim/faults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "sim/event.h"

namespace sim::test {
namespace {

using testing::ElementsAre;

class Observed : public Observer {
  public:
    void event(const Event& event) override { texts.push_back(event.fields.dump()); }
    std::vector<std::string> texts;
};

std::vector<uint32_t> values(Faults& faults, Fault fault, int occasions) {
    std::vector<uint32_t> result;
    for (int i = 0; i < occasions; ++i) result.push_back(faults.strikes(fault).value_or(0));
    return result;
}

TEST(Faults, StrikeOnEveryOccasionOrOnTheOneAskedFor) {
    Observed observed;
    Reporter reporter(observed);
    Faults faults({parse_fault("erase-fails@2:7"), parse_fault("erase-fails@4"),
                   parse_fault("load-fails:22")},
                  reporter);
    EXPECT_THAT(values(faults, Fault::kEraseFails, 5), ElementsAre(0, 7, 0, 1, 0));
    EXPECT_THAT(observed.texts, ElementsAre(R"({"fault":"erase-fails","occasion":2,"value":"7"})",
                                            R"({"fault":"erase-fails","occasion":4,"value":"1"})"));
    EXPECT_THAT(values(faults, Fault::kLoadFails, 2), ElementsAre(22, 22));
    EXPECT_THAT(values(faults, Fault::kFlashLoadFails, 2), ElementsAre(0, 0));
}

TEST(Faults, FirstRequestThatFitsTheOccasionCounts) {
    Observed observed;
    Reporter reporter(observed);
    Faults faults({parse_fault("erase-fails@1:7"), parse_fault("erase-fails:8")}, reporter);
    EXPECT_THAT(values(faults, Fault::kEraseFails, 3), ElementsAre(7, 8, 8));
}

TEST(Faults, TextThatAsksForNoneIsNamed) {
    const std::pair<const char*, const char*> table[] = {
        {"erase", "no fault \"erase\"; --list-faults shows them"},
        {"erase-fails@0",
         "erase-fails: the occasion must be a number from 1 to 4294967295, "
         "not \"0\""},
        {"erase-fails@4294967296:1",
         "erase-fails: the occasion must be a number from 1 to "
         "4294967295, not \"4294967296\""},
        {"erase-fails:",
         "erase-fails: response code must be a number from 1 to 4294967295, "
         "not \"\""},
        {"hang-up-at-info:ever",
         "hang-up-at-info: ms until the channel is back must be a number "
         "from 0 to 3600000 or never, not \"ever\""},
        {"cancel@2:1", "cancel takes no value, not \"1\""},
        {"load-fails:5x", "load-fails: errno must be a number from 1 to 133, not \"5x\""}};
    for (const auto& [text, why] : table) {
        try {
            parse_fault(text);
            ADD_FAILURE() << text;
        } catch (const FaultError& error) {
            EXPECT_STREQ(error.what(), why);
        }
    }
}

TEST(Faults, EachRowOfTheTableCanBeAskedFor) {
    std::set<Fault> faults;
    for (const FaultRow& row : all_faults()) {
        EXPECT_TRUE(faults.insert(row.fault).second) << row.name;
        std::string text = row.name + std::string("@3");
        if (row.value) text += ":" + std::to_string(row.usual_value);
        const FaultRequest request = parse_fault(text);
        EXPECT_EQ(request.fault, row.fault);
        EXPECT_EQ(request.value.value_or(0), row.usual_value) << row.name;
    }
}

}  // namespace
}  // namespace sim::test
