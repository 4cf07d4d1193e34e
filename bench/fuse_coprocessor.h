// SPDX-License-Identifier: Apache-2.0
// A co-processor behind a device file, as marlo-sim shows one to the daemon.
#pragma once

#include <condition_variable>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>

#include "bench/coprocessor.h"
#include "sim/channel_file.h"
#include "sim/device.h"
#include "sim/fuse_mount.h"

namespace bench {

// Mounts the virtual co-processor's channel file, and answers the kernel on a thread of its own.
class FuseCoprocessor : public Coprocessor, private sim::Device {
  public:
    // `mount_point` is an empty directory. Throws sim::MountError, std::runtime_error.
    FuseCoprocessor(const Course& course, const std::filesystem::path& mount_point);
    ~FuseCoprocessor() override;
    FuseCoprocessor(const FuseCoprocessor&) = delete;
    FuseCoprocessor& operator=(const FuseCoprocessor&) = delete;

    int hosts_end() const override { return channel_; }
    double ask_for(uint64_t fragments, const Observer& observer = {}) override;

  private:
    void answer_kernel();
    void wake() const;
    void stop();

    // The device, on the thread that answers the kernel.
    void set_time(sim::Time) override {}
    std::optional<sim::Time> next_deadline() const override { return {}; }
    int ioctl(uint32_t, std::span<uint8_t>, sim::UserMemory&) override { return 0; }
    int open_channel(sim::Channel) override { return 0; }
    void close_channel(sim::Channel) override {}
    int receive(sim::Channel, std::span<const uint8_t> packet) override;
    bool readable(sim::Channel) const override { return has_request_; }
    bool hung_up(sim::Channel) const override { return false; }
    sim::Bytes take_packet(sim::Channel) override;
    std::string remoteproc_state() const override { return {}; }
    void write_wake_lock(std::string_view) override {}
    void write_wake_unlock(std::string_view) override {}

    Course course_;
    sim::FileTree tree_;
    sim::ChannelFile* file_ = nullptr;  // in tree_
    std::unique_ptr<sim::FuseMount> mount_;
    int wake_up_ = -1;
    int channel_ = -1;
    std::vector<uint8_t> request_;

    std::mutex lock_;  // guards what ask_for and the answering thread share
    std::condition_variable done_;
    bool is_ending_ = false;
    uint64_t fragments_left_ = 0;
    uint32_t offset_ = 0;
    bool has_request_ = false;
    const Observer* observer_ = nullptr;
    std::exception_ptr failure_;

    std::thread thread_;
};

}  // namespace bench
