// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "sim/capture/captured_frame.h"
#include "sim/capture/capturing_device.h"
#include "sim/capture/pcapng_writer.h"
#include "sim/firmware_bundle.h"
#include "sim/record_file.h"

namespace sim {

// A pcapng file of what happens at the device files, one interface for the control device and one
// for each channel, with the time of the wall clock. What has happened so far can be read from it
// at any time.
class CaptureFile : private FrameObserver {
  public:
    // `what` happens: a comment on it. Throws RecordError if it cannot be opened.
    CaptureFile(const std::filesystem::path& path, const std::string& what);

    // Names for the ids and ranges to come; before any device.
    void name_firmware(const FirmwareBundle& firmware);
    // The same device; whatever is done to this one is written. It must be there for
    // as long as this one is used.
    Device& around(Device& device);
    // Throws RecordError if a frame could not be written.
    void close();

  private:
    void frame(const CapturedFrame& frame) override;
    void append(const CapturedFrame& frame);
    void write_out();

    RecordFile file_;
    std::ostringstream pending_;  // not in the file yet
    PcapngWriter writer_{pending_};
    std::optional<CapturedFrame> firmware_;  // until it is written
    std::optional<Time> begin_;              // of the frames' time, since 1970
    std::vector<std::unique_ptr<CapturingDevice>> devices_;
};

}  // namespace sim
