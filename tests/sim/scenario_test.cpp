// SPDX-License-Identifier: Apache-2.0
#include "sim/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/sim/scripted_host.h"

namespace sim::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

// A daemon that does what a list of steps says, with a judge that looks on.
class Play {
  public:
    explicit Play(const Scenario& scenario)
        : judge(scenario), host(behaviour_for(scenario, generated_firmware())) {
        host.events.judge = &judge;
    }

    Judge judge;
    Host host;

    void perform(const std::string& words) {
        static const std::map<std::string, std::pair<uint32_t, uint32_t>> boot_commands = {
            {"get boot mode", {6, 0}},
            {"set boot mode HOST", {5, 0}},
            {"set boot mode FLASH", {5, 1}},
            {"load", {3, 0}},
            {"unload", {4, 0}},
            {"soft reset", {0, 0}},
            {"TWM exit", {1, 0}},
            {"save dump", {7, 0}},
            {"boot status 1", {8, 1}},
            {"boot status 2", {8, 2}}};
        const size_t equals = words.find('=');
        if (equals != words.npos) {
            return tell(EventKind::kProperty,
                        {{"name", words.substr(0, equals)}, {"value", words.substr(equals + 1)}});
        }
        if (words == "session begins") return host.answer(1);
        if (words == "session ends") return host.answer();
        if (words == "state INIT" || words == "state refused") return begin_download();
        if (words.starts_with("state ")) return go_on();
        if (words == "rma opened") return open_memory();
        if (words == "rma begins") return;  // told by the model at the first opening
        if (words.starts_with("rma ") || words.starts_with("misc ")) {
            return tell(EventKind::kPhase, {{"phase", words}});
        }
        if (words == "unknown image" || words == "session cancelled") return host.answer();
        if (words.starts_with("told ")) {
            return tell(EventKind::kPhase, {{"phase", "state"}, {"state", words.substr(5)}});
        }
        if (words == "reset") return (void)host.reset();
        if (words.starts_with("query version")) return (void)host.query_version();
        if (words.starts_with("SPI ")) return (void)host.spi(words == "SPI busy");
        if (words == "exit 237") return tell(EventKind::kDaemon, {{"exit", 237}});
        for (const auto& [name, command] : boot_commands) {
            if (words.starts_with(name)) {
                return (void)host.boot_command(command.first, command.second);
            }
        }
        FAIL() << "no such step: " << words;
    }

    void perform_all(const Scenario& scenario, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            const auto stimulus = judge.take_stimulus(now + 10s);
            if (stimulus && std::holds_alternative<Restart>(*stimulus)) {
                host.model.restart_announced(std::get<Restart>(*stimulus).length);
            } else {
                perform(scenario.steps[i].words);
            }
        }
        if (!host.model.status().wakelock_held) return;
        host.model.write_wake_unlock(std::string_view("MARLODAEMON_WAKEUP", 19));
    }

    void log(const Scenario& scenario) {
        for (const std::string& log : scenario.logs) {
            tell(EventKind::kDaemon, {{"line", "I tag: fn:1, " + log + "\n"}});
        }
    }

    void tell(EventKind kind, nlohmann::json fields) { judge.event({now, kind, fields}); }

    Verdict verdict_at(Time time) const { return judge.verdict(host.model, time); }

    Time now = 5s;

  private:
    void begin_download() {
        host.model.open_channel(Channel::kDfu);
        host.model.write_wake_lock(std::string_view("MARLODAEMON_WAKEUP", 19));
        host.erase_all();
        host.ask_state();
    }
    void open_memory() {
        host.model.close_channel(Channel::kRma);
        now += 1s;
        host.model.set_time(now);
        host.model.open_channel(Channel::kRma);
    }
    void go_on() {
        host.answer();
        host.model.close_channel(Channel::kDfu);
        now += 1s;
        host.model.set_time(now);
        host.model.open_channel(Channel::kDfu);
        host.ask_state();
    }
};

class EachScenario : public testing::TestWithParam<Scenario> {};

TEST_P(EachScenario, PassesWhenPlayedAndOnlyAfterTheSettleTime) {
    const Scenario& scenario = GetParam();
    Play play(scenario);
    play.host.model.set_time(play.now);
    play.perform_all(scenario, scenario.steps.size());
    EXPECT_EQ(play.verdict_at(60s).outcome, Verdict::kRunning) << "without its log lines";
    play.log(scenario);
    const Time end = play.now + scenario.settle;
    EXPECT_EQ(play.judge.next_deadline(), end);
    EXPECT_EQ(play.verdict_at(end - 1ns).outcome, Verdict::kRunning);
    EXPECT_EQ(play.verdict_at(end).outcome, Verdict::kPass) << play.verdict_at(end).why;
}

TEST_P(EachScenario, FailsOnOneCommandMore) {
    const Scenario& scenario = GetParam();
    Play play(scenario);
    play.perform_all(scenario, scenario.steps.size());
    play.log(scenario);
    play.perform("save dump");
    EXPECT_EQ(play.verdict_at(play.now).outcome, Verdict::kFail);
    EXPECT_THAT(play.verdict_at(play.now).why, HasSubstr("expected nothing after"));
}

TEST_P(EachScenario, DoesNotPassBeforeTheLastStep) {
    const Scenario& scenario = GetParam();
    if (scenario.steps.empty()) return;
    Play play(scenario);
    play.perform_all(scenario, scenario.steps.size() - 1);
    play.log(scenario);
    EXPECT_EQ(play.verdict_at(600s).outcome, Verdict::kRunning);
    EXPECT_EQ(play.judge.next_deadline(), std::nullopt);
    EXPECT_THAT(play.judge.waiting_for(), HasSubstr(scenario.steps.back().words));
}

INSTANTIATE_TEST_SUITE_P(Table, EachScenario, testing::ValuesIn(all_scenarios()),
                         [](const auto& info) {
                             std::string name = info.param.name;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

std::string why_after(const char* name, const std::vector<std::string>& words) {
    Play play(*find_scenario(name));
    for (const std::string& step : words) play.perform(step);
    return play.verdict_at(play.now).why;
}

TEST(Judge, NamesWhatCameInsteadOfWhat) {
    EXPECT_EQ(why_after("update", {"get boot mode", "unload"}),
              "expected set boot mode HOST after get boot mode FLASH; got unload");
    EXPECT_EQ(why_after("boot-failure", {"get boot mode", "SPI busy", "load", "SPI free"}),
              "expected get boot mode FLASH after load fails; got SPI free");
    EXPECT_EQ(why_after("reset", {"exit 237"}),
              "expected get boot mode FLASH after the start; got exit 237");
    // A failed check of the model comes before everything else.
    EXPECT_EQ(why_after("update", {"load"}), "load while the SPI bus is not marked busy");
}

Verdict verdict_of(const Scenario& scenario, const std::vector<std::string>& words) {
    Play play(scenario);
    for (const std::string& step : words) play.perform(step);
    return play.verdict_at(60s);
}

TEST(Judge, StepOfAnotherThreadMayComeBeforeTheOneInFrontOfIt) {
    Scenario scenario = *find_scenario("host");
    scenario.logs.clear();
    scenario.end = {.boot_mode = kHostMode, .running = false, .spi_busy = true};
    scenario.steps = {"a=1", "b=1",      Step::early("x=1"),  Step::early("y=1"),
                      "c=1", "SPI busy", "set boot mode HOST"};
    const std::vector<std::string> end = {"SPI busy", "set boot mode HOST"};
    const std::pair<std::vector<std::string>, const char*> table[] = {
        {{"a=1", "b=1", "x=1", "y=1", "c=1"}, ""},
        {{"a=1", "y=1", "x=1", "b=1", "c=1"}, ""},
        {{"a=1", "x=1", "b=1", "y=1", "c=1"}, ""},
        {{"x=1"}, "expected a=1 after the start; got x=1"},
        {{"a=1", "x=1", "x=1"}, "expected b=1 after x=1; got x=1"},
        {{"a=1", "b=1", "x=1", "c=1"}, "expected y=1 after x=1; got c=1"},
        {{"a=1", "x=1", "y=1", "c=1"}, "expected b=1 after y=1; got c=1"}};
    for (auto [words, why] : table) {
        words.insert(words.end(), end.begin(), end.end());
        EXPECT_EQ(verdict_of(scenario, words).why, why);
        EXPECT_EQ(verdict_of(scenario, words).outcome, *why ? Verdict::kFail : Verdict::kPass);
    }
}

TEST(Judge, RecoveryIsNoStepUnlessTheScenarioIsAboutIt) {
    Scenario scenario = *find_scenario("host");
    scenario.steps = {"a=1", "state OFFSET_REQ", "b=1"};
    const std::pair<std::vector<std::string>, const char*> table[] = {
        {{"told INIT", "a=1", "told OFFSET_REQ", "told OFFSET_REQ", "b=1", "told INIT"}, ""},
        {{"a=1", "told INIT", "b=1"}, "expected state OFFSET_REQ after a=1; got b=1"},
        {{"a=1", "told refused"}, "expected state OFFSET_REQ after a=1; got state refused"}};
    for (const auto& [words, why] : table) {
        Play play(scenario);
        for (const std::string& step : words) play.perform(step);
        EXPECT_EQ(play.verdict_at(play.now).why, why);
    }
}

TEST(Judge, AsksForARestartWhenItsTurnHasCome) {
    Scenario scenario = *find_scenario("host");
    scenario.steps = {"a=1", Restart{100ms, 30ms}, "b=1"};
    Play play(scenario);
    EXPECT_FALSE(play.judge.take_stimulus(1h));
    play.perform("a=1");
    EXPECT_EQ(play.judge.waiting_for(), "nothing before restart after a=1");
    EXPECT_EQ(play.judge.next_deadline(), play.now + 30ms);
    EXPECT_FALSE(play.judge.take_stimulus(play.now + 30ms - 1ns));
    const auto stimulus = play.judge.take_stimulus(play.now + 30ms);
    ASSERT_TRUE(stimulus);
    EXPECT_EQ(std::get<Restart>(*stimulus).length, 100ms);
    EXPECT_FALSE(play.judge.take_stimulus(1h));
    EXPECT_EQ(play.judge.waiting_for(), "b=1 after restart");
}

TEST(Judge, LooksAtTheFlashInTheEnd) {
    const Scenario& update = *find_scenario("update");
    Play play(update);
    play.host.tamper = [](Bytes& bytes) {
        if (bytes[0] != 6) return;
        ++bytes[28];
        seal(bytes);
    };
    play.perform_all(update, update.steps.size());
    play.log(update);
    EXPECT_THAT(play.verdict_at(60s).why, HasSubstr("flash, image 3 (APPS): byte 0 is"));
}

TEST(Judge, LooksAtTheStateInTheEnd) {
    const std::pair<std::function<void(Host&)>, const char*> table[] = {
        {[](Host& host) { host.boot_command(5, kHostMode); }, "boot mode expected FLASH, got HOST"},
        {[](Host& host) { host.boot_command(4); }, "co-processor expected running, got offline"},
        {[](Host& host) { host.spi(true); }, "SPI bus expected free, got busy"},
        {[](Host& host) { host.boot_command(8, 2); }, "boot status expected 1, got 2"},
        {[](Host& host) { host.model.write_wake_lock(std::string_view("MARLODAEMON_WAKEUP", 19)); },
         "the wakelock is still held"}};
    const Scenario& update = *find_scenario("update");
    for (const auto& [change, why] : table) {
        Play play(update);
        play.perform_all(update, update.steps.size());
        play.log(update);
        play.host.events.judge = nullptr;
        change(play.host);
        EXPECT_THAT(play.verdict_at(60s).why, testing::EndsWith(why));
    }
}

TEST(BehaviourFor, NeedsAVersionThatCanDiffer) {
    FirmwareBundle firmware = generated_firmware();
    firmware.versions.apps = "";
    EXPECT_THROW(behaviour_for(*find_scenario("mismatch"), firmware), FirmwareError);
    EXPECT_NO_THROW(behaviour_for(*find_scenario("current"), firmware));
    firmware.versions.apps = "aaaa";
    const std::string running = behaviour_for(*find_scenario("mismatch"), firmware).versions.apps;
    EXPECT_EQ(running.find("aaaa"), running.npos);
}

}  // namespace
}  // namespace sim::test
