// SPDX-License-Identifier: Apache-2.0
#include "sim/device_fs.h"

#include <algorithm>
#include <functional>

#include "sim/channel_names.h"
#include "sim/process_memory.h"
#include "sim/remote_processors.h"

namespace sim {
namespace {

class ControlDevice : public File {
  public:
    explicit ControlDevice(Device& device) : File(0660, Access::kStream), device_(device) {}

    int open() override { return device_.open_control(); }
    void ioctl(fuse_req_t request, uint32_t command, std::span<const uint8_t> input,
               size_t output_size) override {
        Bytes block(input.begin(), input.end());
        ProcessMemory memory(fuse_req_ctx(request)->pid);
        const int result = device_.ioctl(command, block, memory);
        if (result < 0) {
            fuse_reply_err(request, -result);
        } else {
            fuse_reply_ioctl(request, result, block.data(), std::min(block.size(), output_size));
        }
    }

  private:
    Device& device_;
};

// A file whose text is made anew for each read.
class TextFile : public File {
  public:
    explicit TextFile(std::function<std::string()> text) : File(0444), text_(std::move(text)) {}

    void read(fuse_req_t request, size_t size, off_t offset, bool) override {
        const std::string text = text_();
        const size_t start = std::min(static_cast<size_t>(offset), text.size());
        fuse_reply_buf(request, text.data() + start, std::min(size, text.size() - start));
    }

  private:
    std::function<std::string()> text_;
};

class CommandFile : public File {
  public:
    explicit CommandFile(std::function<void(std::string_view)> write)
        : File(0664), write_(std::move(write)) {}

    void read(fuse_req_t request, size_t, off_t, bool) override {
        fuse_reply_buf(request, nullptr, 0);
    }
    void write(fuse_req_t request, std::span<const char> data) override {
        write_({data.data(), data.size()});
        fuse_reply_write(request, data.size());
    }

  private:
    std::function<void(std::string_view)> write_;
};

void add_text(FileTree& tree, const std::string& path, std::string text) {
    tree.add(path, std::make_unique<TextFile>([text = std::move(text)] { return text; }));
}

void add_remote_processors(FileTree& tree, Device& device) {
    for (const RemoteProcessor& processor : kRemoteProcessors) {
        const std::string directory = std::string("class/remoteproc/") + processor.directory;
        add_text(tree, directory + "/name", processor.name);
        if (processor.state) {
            add_text(tree, directory + "/state", processor.state);
            continue;
        }
        tree.add(directory + "/state",
                 std::make_unique<TextFile>([&device] { return device.remoteproc_state(); }));
    }
}

void fill_sys(FileTree& tree, const Start& start, Device& device) {
    add_remote_processors(tree, device);
    add_text(tree, "class/pmic-lpm/pmic_twm_exit", start.twm_exit);
    add_text(tree, "devices/soc0/platform_subtype_id", start.platform.platform_subtype);
    add_text(tree, "devices/soc0/hw_platform", start.platform.hw_platform);
    add_text(tree, "kernel/dload/dload_mode", start.platform.download_mode);
    tree.add("power/wake_lock", std::make_unique<CommandFile>(
                                    [&](std::string_view name) { device.write_wake_lock(name); }));
    tree.add("power/wake_unlock", std::make_unique<CommandFile>([&](std::string_view name) {
                 device.write_wake_unlock(name);
             }));
}

}  // namespace

DeviceFs::DeviceFs(const std::filesystem::path& root, const Start& start, Device& device) {
    dev_.add("marlo_com_dev", std::make_unique<ControlDevice>(device));
    for (const ChannelName& entry : kChannelNames) {
        auto file = std::make_unique<ChannelFile>(device, entry.channel);
        channels_.push_back(file.get());
        dev_.add(entry.file, std::move(file));
    }
    fill_sys(sys_, start, device);
    mounts_.push_back(std::make_unique<FuseMount>(root / "dev", dev_));
    mounts_.push_back(std::make_unique<FuseMount>(root / "sys", sys_));
}

DeviceFs::~DeviceFs() {
    for (ChannelFile* channel : channels_) channel->abandon();
}

void DeviceFs::serve_channels() {
    for (ChannelFile* channel : channels_) channel->serve();
}

}  // namespace sim
