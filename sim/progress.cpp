// SPDX-License-Identifier: Apache-2.0
#include "sim/progress.h"

#include <algorithm>
#include <cmath>

#include "sim/event.h"

namespace sim {
namespace {

// How old a sample is when it counts for a third: a quarter of what has passed, so that a rate that
// changes is soon believed, and one that merely wavers is not.
constexpr double kMemoryShare = 0.25;
constexpr double kLeastMemory = 0.5;  // seconds

}  // namespace

void ProgressMeter::event(const Event& event) {
    if (event.kind == EventKind::kPhase) {
        const std::string phase = event.fields.value("phase", "");
        if (phase == "erase" || phase == "misc begins" || phase == "rma begins") what_.clear();
    }
    if (event.kind != EventKind::kChannel) return;
    if (event.fields.value("change", "") == "hung up") channel_away_ = true;
    if (event.fields.value("change", "") == "opened" && std::exchange(channel_away_, false)) {
        sampled_at_ = std::max(sampled_at_, event.time);
    }
}

std::optional<ProgressMeter::Amount> ProgressMeter::under_way(const Status& status) {
    if (status.phase == Phase::kErase) {
        return Amount{"erase", status.erase_done, status.erase_total};
    }
    if (status.phase == Phase::kImages) {
        Amount all = {"images", 0, 0};
        for (const ImageProgress& image : status.images) {
            all.done += image.done + image.being_written;
            all.total += image.size;
        }
        return all;
    }
    for (const auto& [type, resource] : status.misc_data) {
        if (resource.done < resource.size) {
            return Amount{"misc data " + resource.name, resource.done, resource.size};
        }
    }
    if (status.memory_done < status.memory_total) {
        return Amount{"remote memory", status.memory_done, status.memory_total};
    }
    return {};
}

std::optional<Progress> ProgressMeter::look(const Status& status, Time now) {
    const auto amount = under_way(status);
    if (!amount || amount->total == 0) {
        what_.clear();
        return {};
    }
    if (amount->what != what_) begin(*amount, now);
    sample(std::min(amount->done, amount->total), now);
    Progress progress = {what_, done_, amount->total, {}, {}};
    if (recent_bytes_ > 0 && recent_seconds_ > 0) {
        progress.rate = recent_bytes_ / recent_seconds_;
        const double seconds = static_cast<double>(amount->total - done_) / *progress.rate;
        // More than anybody waits for, and less than a Time can hold.
        constexpr double kLongest = 1e9;
        progress.remaining = std::chrono::duration_cast<Time>(
            std::chrono::duration<double>(std::min(seconds, kLongest)));
    }
    return progress;
}

void ProgressMeter::begin(const Amount& amount, Time now) {
    what_ = amount.what;
    done_ = std::min(amount.done, amount.total);
    sampled_at_ = now;
    elapsed_ = recent_bytes_ = recent_seconds_ = 0;
}

void ProgressMeter::sample(uint64_t done, Time now) {
    if (channel_away_ || now <= sampled_at_) return;
    const double seconds = std::chrono::duration<double>(now - sampled_at_).count();
    sampled_at_ = now;
    elapsed_ += seconds;
    const double kept = std::exp(-seconds / std::max(kLeastMemory, kMemoryShare * elapsed_));
    const uint64_t more = done > done_ ? done - done_ : 0;
    recent_bytes_ = recent_bytes_ * kept + static_cast<double>(more);
    recent_seconds_ = recent_seconds_ * kept + seconds;
    done_ += more;
}

}  // namespace sim
