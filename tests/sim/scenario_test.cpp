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
    explicit Play(Scenario played = *find_scenario("update"))
        : scenario(std::move(played)),
          judge(scenario),
          host(behaviour_for(scenario, generated_firmware())) {
        host.events.judge = &judge;
    }

    const Scenario scenario;
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
            {"save dump", {7, 0}},
            {"boot status 1", {8, 1}}};
        const size_t equals = words.find('=');
        if (equals != words.npos) {
            return tell(EventKind::kProperty,
                        {{"name", words.substr(0, equals)}, {"value", words.substr(equals + 1)}});
        }
        if (words == "session begins") return host.answer(1);
        if (words == "session ends") return host.answer();
        if (words == "state INIT") return begin_download();
        if (words.starts_with("told ")) {
            return tell(EventKind::kPhase, {{"phase", "state"}, {"state", words.substr(5)}});
        }
        if (words.starts_with("SPI ")) return (void)host.spi(words == "SPI busy");
        if (words == "exit 237") return tell(EventKind::kDaemon, {{"exit", 237}});
        for (const auto& [name, command] : boot_commands) {
            if (words.starts_with(name)) {
                return (void)host.boot_command(command.first, command.second);
            }
        }
        FAIL() << "no such step: " << words;
    }

    void perform_all() {
        for (const Step& step : scenario.steps) perform(step.words);
        host.model.write_wake_unlock(kWakelock);
    }

    void log() {
        for (const std::string& log : scenario.logs) {
            tell(EventKind::kDaemon, {{"line", "I tag: fn:1, " + log + "\n"}});
        }
    }

    Verdict verdict_at(Time time) const { return judge.verdict(host.model, time); }

    const Time now = 5s;

  private:
    void tell(EventKind kind, nlohmann::json fields) { judge.event({now, kind, fields}); }
    void begin_download() {
        host.model.open_channel(Channel::kDfu);
        host.take_wakelock();
        host.erase_all();
        host.ask_state();
    }
};

TEST(Judge, PassesOnlyAfterTheSettleTime) {
    Play play;
    play.host.model.set_time(play.now);
    play.perform_all();
    EXPECT_EQ(play.verdict_at(60s).outcome, Verdict::kRunning) << "without its log lines";
    EXPECT_THAT(play.judge.waiting_for(), HasSubstr("the log line"));
    play.log();
    const Time end = play.now + play.scenario.settle;
    EXPECT_EQ(play.judge.next_deadline(), end);
    EXPECT_EQ(play.verdict_at(end - 1ns).outcome, Verdict::kRunning);
    EXPECT_EQ(play.verdict_at(end).outcome, Verdict::kPass) << play.verdict_at(end).why;
    play.perform("save dump");
    EXPECT_THAT(play.verdict_at(end).why, HasSubstr("expected nothing after"));
}

Verdict verdict_of(const Scenario& scenario, const std::vector<std::string>& words) {
    Play play(scenario);
    for (const std::string& step : words) play.perform(step);
    return play.verdict_at(60s);
}

std::string why_after(const char* name, const std::vector<std::string>& words) {
    return verdict_of(*find_scenario(name), words).why;
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

TEST(Judge, TellsOfEachThingWhetherItWasMet) {
    Play play(*find_scenario("absent"));
    const auto outcomes = [](const std::vector<Check>& checks) {
        std::vector<Check::Outcome> all;
        for (const Check& check : checks) all.push_back(check.outcome);
        return all;
    };
    EXPECT_EQ(outcomes(play.judge.steps()), std::vector{Check::kNotMet});
    EXPECT_EQ(outcomes(play.judge.logs()), std::vector{Check::kNotMet});
    play.perform("exit 237");
    play.log();
    play.perform("a=1");
    EXPECT_EQ(outcomes(play.judge.steps()), (std::vector{Check::kMet, Check::kFailed}));
    EXPECT_EQ(play.judge.steps()[0].time, play.now);
    EXPECT_EQ(play.judge.steps()[1].why, "expected nothing after exit 237, got a=1");
    EXPECT_EQ(play.judge.logs()[0].time, play.now);
    play.host.spi(true);
    const std::vector<Check> end = play.judge.end(play.host.model);
    EXPECT_EQ(outcomes(end),
              (std::vector{Check::kMet, Check::kMet, Check::kFailed, Check::kMet, Check::kMet}));
    EXPECT_EQ(end[2].why, "at the end SPI bus expected free, got busy");
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
    for (const auto& [words, why] : table) EXPECT_EQ(verdict_of(scenario, words).why, why);
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
    EXPECT_EQ(play.judge.waiting_for(), "b=1 after restart");
    EXPECT_EQ(play.judge.next_deadline(), std::nullopt);
    EXPECT_EQ(play.verdict_at(1h).outcome, Verdict::kRunning);
}

TEST(Judge, LooksAtTheFlashAndTheStateInTheEnd) {
    const std::pair<std::function<void(Host&)>, const char*> table[] = {
        {[](Host& host) { host.boot_command(5, kHostMode); }, "boot mode expected FLASH, got HOST"},
        {[](Host& host) { host.boot_command(4); }, "co-processor expected running, got offline"},
        {[](Host& host) { host.spi(true); }, "SPI bus expected free, got busy"},
        {[](Host& host) { host.boot_command(8, 2); }, "boot status expected 1, got 2"},
        {[](Host& host) { host.take_wakelock(); }, "the wakelock is still held"},
        {nullptr, "flash, image 3 (APPS): byte 0 is 142, not 141"}};
    for (const auto& [change_state, why] : table) {
        Play play;
        if (!change_state) play.host.tamper = change(0, 6, 0, add_one(28));
        play.perform_all();
        play.log();
        play.host.events.judge = nullptr;
        if (change_state) change_state(play.host);
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
