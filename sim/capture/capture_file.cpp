// SPDX-License-Identifier: Apache-2.0
#include "sim/capture/capture_file.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "sim/channel_names.h"

namespace sim {
namespace {

PcapngWriter::Direction direction_of(const CapturedFrame& frame) {
    switch (frame.direction) {
        case FrameDirection::kToDaemon:
            return PcapngWriter::Direction::kInbound;
        case FrameDirection::kFromDaemon:
            return PcapngWriter::Direction::kOutbound;
        case FrameDirection::kNone:
            break;
    }
    return PcapngWriter::Direction::kUnknown;
}

// A name comes from a file of the user's, and ends with its line.
void append_line(Bytes& text, const char* what, uint32_t number, size_t size, std::string name) {
    std::replace(name.begin(), name.end(), '\n', ' ');
    const std::string line = std::string(what) + " " + std::to_string(number) + " " +
                             std::to_string(size) + " " + name + "\n";
    text.insert(text.end(), line.begin(), line.end());
}

}  // namespace

CaptureFile::CaptureFile(const std::filesystem::path& path, const std::string& what)
    : file_("capture", "--capture", path) {
    writer_.section("marlo-sim", what);
    writer_.interface("marlo_com_dev");
    for (const ChannelName& channel : kChannelNames) writer_.interface(channel.file);
}

void CaptureFile::name_firmware(const FirmwareBundle& firmware) {
    CapturedFrame names = {{}, FrameKind::kFirmware, FrameSource::kControl};
    for (const Image& image : firmware.images) {
        append_line(names.body, "image", image.id, image.data.size(), image.name);
    }
    for (const EraseRange& range : firmware.erase_ranges) {
        append_line(names.body, "range", range.offset, range.size, range.name);
    }
    firmware_ = std::move(names);
}

Device& CaptureFile::around(Device& device) {
    devices_.push_back(
        std::make_unique<CapturingDevice>(device, static_cast<FrameObserver&>(*this)));
    return *devices_.back();
}

void CaptureFile::close() {
    write_out();
    file_.close();
}

void CaptureFile::frame(const CapturedFrame& frame) {
    if (!begin_) {
        begin_ = std::chrono::system_clock::now().time_since_epoch() - frame.time;
        if (firmware_) {
            firmware_->time = frame.time;
            append(*firmware_);
        }
    }
    append(frame);
    write_out();
}

void CaptureFile::append(const CapturedFrame& frame) {
    writer_.packet(static_cast<uint32_t>(frame.source), *begin_ + frame.time, direction_of(frame),
                   encode(frame));
}

// Whoever kills us or looks on finds it complete.
void CaptureFile::write_out() {
    file_.write(pending_.view());
    file_.flush();
    pending_.str("");
}

}  // namespace sim
