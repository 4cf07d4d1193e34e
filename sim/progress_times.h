// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "sim/observer.h"

namespace sim {

// When each part of the last download began and ended, learned from the events.
class ProgressTimes : public Observer {
  public:
    struct Span {
        Time begin;
        std::optional<Time> end;
    };

    void event(const Event& event) override;

    std::optional<Span> erase() const { return erase_; }
    std::optional<Span> image(uint32_t id) const;
    std::optional<Span> images() const { return all_images_; }

  private:
    std::optional<Span> erase_;
    std::optional<Span> all_images_;
    std::map<uint32_t, Span> images_;
};

}  // namespace sim
