// SPDX-License-Identifier: Apache-2.0
// The daemon's updater over the bundle that was aimed at, with a channel whose other end is here:
// what it sends is what a co-processor would be sent.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "fwupdater/marlo_fw_updater.h"
#include "tools/marlo_fw/daemon_log.h"

namespace marlo_fw {

struct EraseRequest {
    uint32_t offset;
    uint32_t length;
};

class DaemonRun {
  public:
    DaemonRun();

    // Loads the images, erases what the daemon asks to have erased, and says that the co-processor
    // waits for an update. Once.
    void start_update();
    // What was logged while the images were loaded.
    const std::vector<LogLine>& loading_log() const { return loading_log_; }
    const std::vector<EraseRequest>& erase_requests() const { return erase_requests_; }
    // Whether the update was then begun.
    bool has_begun() const { return has_begun_; }

    // What the co-processor is told of an image's size, 0 where there is none.
    uint32_t image_size(uint32_t id);
    // The image as it is sent, piece by piece.
    void read_image(uint32_t id, const std::function<void(std::span<const uint8_t>)>& piece);

    marlo_fw_updater& updater() { return updater_; }

  private:
    void take(std::span<const uint8_t> message);

    std::vector<LogLine> loading_log_ = take_daemon_log();  // from now on lines come here
    std::vector<EraseRequest> erase_requests_;
    bool is_erasing_ = false;
    bool has_begun_ = false;
    uint32_t image_size_ = 0;
    std::function<void(std::span<const uint8_t>)> piece_;
    marlo_fw_updater updater_;
};

}  // namespace marlo_fw
