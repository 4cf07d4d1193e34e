// SPDX-License-Identifier: Apache-2.0
// The device files and the part of sysfs that the daemon sees, mounted at ROOT/dev and ROOT/sys.
#pragma once

#include <filesystem>
#include <span>
#include <vector>

#include "sim/channel_file.h"
#include "sim/device.h"
#include "sim/fuse_mount.h"
#include "sim/scenario.h"

namespace sim {

// Mounted from construction to destruction. All requests are answered on the thread that
// calls FuseMount::answer on mounts(), which must bring the device's time up to date before.
class DeviceFs {
  public:
    // ROOT/dev and ROOT/sys exist and are empty. Throws MountError.
    DeviceFs(const std::filesystem::path& root, const Start& start, Device& device);
    ~DeviceFs();

    std::span<const std::unique_ptr<FuseMount>> mounts() const { return mounts_; }

    // Passes on what the device has to say on its channels. To be called after each answered
    // request and each Device::set_time.
    void serve_channels();

  private:
    FileTree dev_;
    FileTree sys_;
    std::vector<std::unique_ptr<FuseMount>> mounts_;
    std::vector<ChannelFile*> channels_;  // in dev_
};

}  // namespace sim
