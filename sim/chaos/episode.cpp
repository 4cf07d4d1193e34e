// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/episode.h"

#include <cerrno>
#include <cstring>
#include <tuple>
#include <utility>

#include "sim/event.h"

namespace sim {

using namespace std::chrono_literals;
using Kind = Episode::Kind;

namespace {

struct Weight {
    Kind kind;
    uint32_t no_flash;
    uint32_t flash;
};
constexpr Weight kWeights[] = {
    {Kind::kInOrder, 6, 6},       {Kind::kNoise, 30, 34},   {Kind::kRest, 3, 3},
    {Kind::kHangUp, 10, 10},      {Kind::kRestart, 14, 3},  {Kind::kNoReturn, 1, 1},
    {Kind::kFalseEvent, 3, 2},    {Kind::kOddEvents, 4, 4}, {Kind::kProperty, 4, 3},
    {Kind::kEmptyReads, 4, 4},    {Kind::kOddPolls, 4, 4},  {Kind::kFailingReads, 4, 4},
    {Kind::kFailingWrites, 4, 4}, {Kind::kControls, 3, 3},  {Kind::kControlOpens, 2, 2},
    {Kind::kNewDaemon, 4, 5},
};

constexpr uint32_t kLasting = 130;  // reads or polls: after a hundred the host makes them seldom
constexpr uint32_t kFailingOpens[] = {0, 0, 0, 1, 2, 3};  // with the third the host gives up
constexpr int kOpenErrors[] = {EBUSY, ENOENT, ENODEV};
constexpr int kReadErrors[] = {EIO, EAGAIN, ENOMEM, EINTR};
constexpr int kWriteErrors[] = {EIO, EAGAIN, EBUSY, ENOMEM};
constexpr uint32_t kFailingWrites[] = {1, 20, 99, 100, 101, 250};

Kind choose_kind(Dice& dice, bool no_flash) {
    uint32_t sum = 0;
    for (const Weight& row : kWeights) sum += no_flash ? row.no_flash : row.flash;
    uint32_t at = dice.below(sum);
    for (const Weight& row : kWeights) {
        const uint32_t weight = no_flash ? row.no_flash : row.flash;
        if (at < weight) return row.kind;
        at -= weight;
    }
    return Kind::kNoise;
}

std::pair<std::string, std::string> odd_property(Dice& dice) {
    switch (dice.below(8)) {
        case 0:
            return {"vendor.marlo_reset", "maybe"};
        case 1:
            return {"vendor.marlo_reset", std::string(300, '1')};
        case 2:
            return {"vendor.zt_aon.misc_update", "1"};
        case 3:
            return {"vendor.zt_aon.misc_update", "99999999999999999999"};
        case 4:
            return {"vendor.zt_aon.misc_update", "0"};
        case 5:
            return {"vendor.marlo.boot_complete", "0"};
        default:
            return {"vendor.marlo_reset", "1"};
    }
}

void choose_error(Episode& episode, const std::string& what, int error) {
    episode.error = error;
    episode.words = std::to_string(episode.count) + " " + what + ": " + std::strerror(error);
}

Episode packets(Kind kind, Dice& dice, bool no_flash) {
    Episode episode{.kind = kind, .words = "all in order"};
    episode.requests = dice.between(20, no_flash ? 200 : 500);  // a download is faster
    if (kind == Kind::kNoise) {
        episode.percent = dice.between(10, 70);
        episode.words = std::to_string(episode.percent) + " % noise";
    }
    return episode;
}

Episode announcement(Kind kind, Dice& dice) {
    Episode episode{.kind = kind, .words = "the co-processor loses its power"};
    if (kind == Kind::kRestart) {
        episode.length = std::chrono::milliseconds(dice.below(400));
        episode.words = "the co-processor restarts";
    }
    if (kind == Kind::kFalseEvent) {
        episode.event = dice.one_in(3) ? kPoweredDown : kPoweredUp;
        episode.words = "announcement " + std::to_string(episode.event) + ", which is not true";
        episode.until_rest = true;
    }
    if (kind == Kind::kOddEvents) {
        episode.count = dice.between(5, 50);
        episode.words = std::to_string(episode.count) + " odd announcements";
    }
    episode.requests = dice.between(20, 200);
    return episode;
}

Episode channel_trouble(Kind kind, Dice& dice) {
    Episode episode{.kind = kind, .words = {}};
    episode.requests = dice.between(10, 60);
    episode.count = dice.between(3, 120);
    switch (kind) {
        case Kind::kHangUp:
            episode.count = dice.one_of(kFailingOpens);
            choose_error(episode, "failing opens after a hang-up", dice.one_of(kOpenErrors));
            if (episode.count == 0) episode.words = "a hang-up";
            break;
        case Kind::kFailingReads:
            episode.count = dice.between(1, 30);
            choose_error(episode, "failing reads", dice.one_of(kReadErrors));
            break;
        case Kind::kFailingWrites:
            episode.count = dice.one_of(kFailingWrites);
            choose_error(episode, "failing writes", dice.one_of(kWriteErrors));
            break;
        case Kind::kEmptyReads:
            episode.words = "empty reads";
            break;
        default:
            episode.words = "polls that tell of an error";
    }
    const bool may_last = kind == Kind::kEmptyReads || kind == Kind::kOddPolls;
    if (may_last) {
        if (dice.one_in(2)) episode.count = kLasting;
        episode.requests = dice.between(5, 20);  // few: most of the time there is nothing to read
        episode.words = std::to_string(episode.count) + " " + episode.words;
    }
    return episode;
}

Episode control_trouble(Kind kind, Dice& dice) {
    Episode episode{.kind = kind, .words = {}, .count = dice.between(1, 4)};
    episode.words = std::to_string(episode.count) + " odd results of control requests";
    if (kind == Kind::kControlOpens) {
        choose_error(episode, "failing opens of the control device",
                     dice.one_in(2) ? EBUSY : ENOENT);
    }
    episode.property = "vendor.marlo_reset";
    episode.value = "1";
    episode.requests = 100;
    episode.until_rest = true;
    return episode;
}

Episode property_change(Dice& dice) {
    Episode episode{.kind = Kind::kProperty, .words = {}};
    std::tie(episode.property, episode.value) = odd_property(dice);
    episode.words = episode.property + " = " + episode.value.substr(0, 20);
    episode.requests = 100;
    episode.until_rest = true;
    return episode;
}

}  // namespace

Episode choose_episode(Dice dice, bool no_flash) {
    const Kind kind = choose_kind(dice, no_flash);
    Episode episode{.kind = kind, .words = "rest"};
    switch (kind) {
        case Kind::kInOrder:
        case Kind::kNoise:
            episode = packets(kind, dice, no_flash);
            break;
        case Kind::kRestart:
        case Kind::kNoReturn:
        case Kind::kFalseEvent:
        case Kind::kOddEvents:
            episode = announcement(kind, dice);
            break;
        case Kind::kHangUp:
        case Kind::kEmptyReads:
        case Kind::kOddPolls:
        case Kind::kFailingReads:
        case Kind::kFailingWrites:
            episode = channel_trouble(kind, dice);
            break;
        case Kind::kControls:
        case Kind::kControlOpens:
            episode = control_trouble(kind, dice);
            break;
        case Kind::kProperty:
            episode = property_change(dice);
            break;
        case Kind::kRest:
            break;
        case Kind::kNewDaemon:
            episode.words = "the daemon is ended and started again";
            episode.requests = 50;
            break;
    }
    episode.channel =
        no_flash ? (dice.one_in(6) ? Channel::kMiscData : Channel::kRma) : Channel::kDfu;
    return episode;
}

std::string odd_announcement(Dice& dice) {
    constexpr size_t kLongest = 1024;  // of which the daemon reads no more
    const std::string device =
        "change@/devices/virtual/marlo_com/marlo_com_dev" + std::string(1, '\0');
    switch (dice.below(6)) {
        case 0: {
            const Bytes noise = dice.bytes(dice.between(1, 1500));
            return {noise.begin(), noise.end()};
        }
        case 1:
            return device + "MARLO_EVENT=";
        case 2:
            return device + "MARLO_EVENT=" + std::to_string(dice.between(5, 2000000000));
        case 3:
            return device + "MARLO_EVENT=-99999999999999999999";
        case 4:
            return device + std::string(kLongest - device.size(), 'x') + "MARLO_EVENT=1";
        default:
            return std::string(1, '\0') + device + "MARLO_EVENT=4";
    }
}

}  // namespace sim
