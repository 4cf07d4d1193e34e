// SPDX-License-Identifier: Apache-2.0
#include "sim/lab/device_display.h"

#include <unistd.h>

#include <algorithm>

#include "sim/daemon_log.h"
#include "sim/event.h"
#include "sim/lab/device_message.h"
#include "sim/process_usage.h"

namespace sim {
namespace {

constexpr Time kBetweenMessages = std::chrono::milliseconds(50);

struct Amount {
    uint64_t done = 0;
    uint64_t total = 0;
};

// The variant without flash has no use for a download.
Amount amount_of(const Status& status) {
    Amount amount = {status.memory_done, status.memory_total};
    for (const auto& [type, resource] : status.misc_data) {
        amount.done += resource.done;
        amount.total += resource.size;
    }
    if (status.phase == Phase::kIdle && amount.total != 0) return amount;
    amount.done += status.erase_done;
    amount.total += status.erase_total;
    for (const ImageProgress& image : status.images) {
        amount.done += image.done + image.being_written;
        amount.total += image.size;
    }
    return amount;
}

}  // namespace

void DeviceDisplay::event(const Event& event) {
    plain_.event(event);
    meter_.event(event);
    if (!event.fields.contains("started")) return;
    daemon_ = event.fields["started"];
    tell(amount_message(0, 0, {}));
}

void DeviceDisplay::refresh(const Status& status, Time now) {
    const std::optional<Progress> present = meter_.look(status, now);
    if (told_at_ && now - *told_at_ < kBetweenMessages) return;
    told_at_ = now;
    text_.str("");  // the steps are nobody's business as long as all goes well
    daemon_memory_ = std::max(daemon_memory_, peak_memory_of(daemon_));
    const Amount amount = amount_of(status);
    tell(amount_message(amount.done, amount.total, present));
}

void DeviceDisplay::finish(const Status& status, Time now, const Ending& ending) {
    told_at_.reset();
    refresh(status, now);
    plain_.finish(status, now, ending);
    LineSplitter splitter;
    for (const std::string& line : splitter.add(text_.str())) tell(log_message(line));
}

void DeviceDisplay::tell(const std::string& message) const {
    for (size_t told = 0; told < message.size();) {
        const ssize_t written = write(pipe_, message.data() + told, message.size() - told);
        if (written <= 0) return;
        told += static_cast<size_t>(written);
    }
}

}  // namespace sim
