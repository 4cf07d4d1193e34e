// SPDX-License-Identifier: Apache-2.0
#include "sim/progress_times.h"

#include "sim/event.h"

namespace sim {

void ProgressTimes::event(const Event& event) {
    if (event.kind != EventKind::kPhase) return;
    const std::string phase = event.fields.value("phase", "");
    const uint32_t image = event.fields.value("image", uint32_t{0});
    if (phase == "erase") {
        erase_ = Span{event.time, std::nullopt};
        all_images_.reset();
        images_.clear();
    }
    if (phase == "session begins") {
        if (erase_) erase_->end = event.time;
        all_images_ = Span{event.time, std::nullopt};
    }
    if (phase == "session ends" && all_images_) all_images_->end = event.time;
    if (phase == "image") images_[image] = Span{event.time, std::nullopt};
    if (phase == "image done" && images_.count(image)) images_[image].end = event.time;
}

std::optional<ProgressTimes::Span> ProgressTimes::image(uint32_t id) const {
    const auto found = images_.find(id);
    return found == images_.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace sim
