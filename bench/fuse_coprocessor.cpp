// SPDX-License-Identifier: Apache-2.0
#include "bench/fuse_coprocessor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

#include "wire/little_endian.h"

namespace bench {
namespace {

constexpr const char* kFileName = "glink_pkt_marlo_dfu";
constexpr size_t kOffsetOffset = 20;

}  // namespace

FuseCoprocessor::FuseCoprocessor(const Course& course, const std::filesystem::path& mount_point)
    : course_(course), wake_up_(::eventfd(0, EFD_CLOEXEC)), request_(request_for(course, 0)) {
    sim::Device& device = *this;
    auto file = std::make_unique<sim::ChannelFile>(device, sim::Channel::kDfu);
    file_ = file.get();
    tree_.add(kFileName, std::move(file));
    mount_ = std::make_unique<sim::FuseMount>(mount_point, tree_);
    thread_ = std::thread([this] { answer_kernel(); });
    channel_ = ::open((mount_point / kFileName).c_str(), O_RDWR | O_CLOEXEC);
    if (channel_ < 0) {
        const int error = errno;
        stop();
        throw std::runtime_error(std::string(kFileName) +
                                 " cannot be opened: " + std::strerror(error));
    }
}

FuseCoprocessor::~FuseCoprocessor() {
    ::close(channel_);
    stop();
}

void FuseCoprocessor::stop() {
    {
        const std::lock_guard lock(lock_);
        is_ending_ = true;
    }
    wake();
    thread_.join();
    file_->abandon();
    ::close(wake_up_);
}

void FuseCoprocessor::wake() const {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t count = ::write(wake_up_, &one, sizeof(one));
}

double FuseCoprocessor::ask_for(uint64_t fragments, const Observer& observer) {
    const auto begin = std::chrono::steady_clock::now();
    std::unique_lock lock(lock_);
    fragments_left_ = fragments;
    observer_ = &observer;
    offset_ = 0;
    has_request_ = true;
    wake();
    done_.wait(lock, [this] { return fragments_left_ == 0 || failure_; });
    if (failure_) {
        std::rethrow_exception(failure_);
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void FuseCoprocessor::answer_kernel() {
    pollfd entries[2] = {{mount_->descriptor(), POLLIN, 0}, {wake_up_, POLLIN, 0}};
    while (true) {
        ::poll(entries, 2, -1);
        if (entries[1].revents != 0) {
            uint64_t count = 0;
            [[maybe_unused]] const ssize_t size = ::read(wake_up_, &count, sizeof(count));
        }
        const std::lock_guard lock(lock_);
        if (is_ending_) {
            return;
        }
        while (mount_->receive() == sim::FuseMount::Received::kRequest) {
            mount_->answer();
            file_->serve();
        }
        file_->serve();
    }
}

int FuseCoprocessor::receive(sim::Channel, std::span<const uint8_t> packet) {
    const size_t expected = kAnswerHeadBytes + course_.fragment_bytes;
    try {
        if (packet.size() != expected) {
            throw std::runtime_error("an answer of " + std::to_string(packet.size()) +
                                     " bytes came, not " + std::to_string(expected));
        }
        if (*observer_) {
            (*observer_)(offset_, packet);
        }
    } catch (const std::exception&) {
        failure_ = std::current_exception();
        done_.notify_one();
    }
    offset_ += course_.fragment_bytes;
    offset_ = offset_ == course_.image_bytes ? 0 : offset_;
    has_request_ = --fragments_left_ > 0;
    if (!has_request_) {
        done_.notify_one();
    }
    return static_cast<int>(packet.size());
}

sim::Bytes FuseCoprocessor::take_packet(sim::Channel) {
    has_request_ = false;
    wire::put_word_at(request_, kOffsetOffset, offset_);
    return request_;
}

}  // namespace bench
