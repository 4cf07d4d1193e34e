// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/course.h"

#include <poll.h>

namespace sim {

using Kind = Episode::Kind;

namespace {

constexpr uint32_t kUsualNoise = 15;  // per cent, while something else goes wrong

uint32_t noise(const Episode& episode) {
    switch (episode.kind) {
        case Kind::kNoise:
            return episode.percent;
        case Kind::kInOrder:
        case Kind::kRest:
            return 0;
        default:
            return kUsualNoise;
    }
}

}  // namespace

const Episode& Course::begin_next() {
    DiceBox& dice = device_.context().dice;
    dice.begin_chapter(++episodes_);
    episode_ = choose_episode(dice.roll("episode"), no_flash_);
    device_.set_noise(noise(episode_));
    begin();
    device_.context().requests_due = episode_.requests;
    return episode_;
}

void Course::begin() {
    switch (episode_.kind) {
        case Kind::kRestart:
            return device_.restart(episode_.length);
        case Kind::kNoReturn:
            return device_.restart({});
        case Kind::kControls:
            return device_.fail_controls(episode_.count);
        case Kind::kControlOpens:
            return device_.fail_control_opens(episode_.count, episode_.error);
        case Kind::kHangUp:
            device_.hang_up(episode_.channel);
            break;
        default:
            break;
    }
    device_.set_trouble(episode_.channel, trouble());
}

ChannelTrouble Course::trouble() const {
    ChannelTrouble trouble;
    switch (episode_.kind) {
        case Kind::kHangUp:
            trouble.failing_opens = episode_.count;
            trouble.open_error = episode_.error;
            break;
        case Kind::kEmptyReads:
            trouble.empty_reads = episode_.count;
            break;
        case Kind::kOddPolls:
            trouble.odd_polls = episode_.count;
            trouble.odd_events = POLLERR;
            break;
        case Kind::kFailingReads:
            trouble.failing_reads = episode_.count;
            trouble.read_error = episode_.error;
            break;
        case Kind::kFailingWrites:
            trouble.failing_writes = episode_.count;
            trouble.write_error = episode_.error;
            break;
        default:
            break;
    }
    return trouble;
}

void Course::end() {
    device_.context().requests_due = 0;
    device_.set_trouble(episode_.channel, {});
}

}  // namespace sim
