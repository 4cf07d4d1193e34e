// SPDX-License-Identifier: Apache-2.0
#include "bench/fragment_server.h"

#include <libdeflate.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "fwupdater/dfu_messages.h"

namespace bench {
namespace {

uint32_t word(const uint8_t* at) {
    uint32_t value = 0;
    std::memcpy(&value, at, sizeof(value));
    return value;
}

}  // namespace

BareLoop::BareLoop(int channel, std::span<const uint8_t> image) : channel_(channel), image_(image) {
    if (::pipe(stop_) != 0) {
        throw std::runtime_error(std::string("no pipe: ") + std::strerror(errno));
    }
    thread_ = std::thread([this] { serve(); });
}

BareLoop::~BareLoop() {
    ::close(stop_[1]);
    thread_.join();
    ::close(stop_[0]);
}

clockid_t BareLoop::cpu_clock() const {
    clockid_t clock = 0;
    pthread_getcpuclockid(thread_.native_handle(), &clock);
    return clock;
}

void BareLoop::serve() {
    while (serve_one()) {
    }
}

// [[gnu::noinline]] keeps it visible to a profiler.
[[gnu::noinline]] bool BareLoop::serve_one() {
    pollfd entries[2] = {{stop_[0], POLLIN, 0}, {channel_, POLLIN, 0}};
    ::poll(entries, 2, -1);
    if (entries[0].revents != 0) {
        return false;
    }
    std::array<uint8_t, 44> request;
    if (::read(channel_, request.data(), request.size()) < static_cast<ssize_t>(kRequestBytes)) {
        return false;
    }
    const uint32_t offset = word(request.data() + 20);
    const uint32_t length = word(request.data() + 24);
    answer_.resize(kAnswerHeadBytes + length);
    const uint32_t head[4] = {dfu::IMG_OFFSET_RESP, dfu::DFU_MAGIC,
                              static_cast<uint32_t>(answer_.size()), 0};
    std::memcpy(answer_.data(), head, sizeof(head));
    std::memcpy(answer_.data() + sizeof(head), request.data() + sizeof(head), 12);
    std::memcpy(answer_.data() + kAnswerHeadBytes, image_.data() + offset, length);
    const uint32_t crc = libdeflate_crc32(0, answer_.data(), answer_.size());
    std::memcpy(answer_.data() + 12, &crc, sizeof(crc));
    return ::write(channel_, answer_.data(), answer_.size()) > 0;
}

void DaemonServer::Reports::handleDFUResponse(std::string, Status status) {
    if (status == STATUS_CHANNEL_ERROR) {
        has_failed = true;
    }
    if (reader_clock == 0) {
        clockid_t clock = 0;
        pthread_getcpuclockid(pthread_self(), &clock);
        reader_clock = clock;
    }
}

DaemonServer::DaemonServer() : updater_(std::make_unique<marlo_fw_updater>()) {
    updater_->startMarloDownloaderWithCallback(&reports_);
    if (reports_.has_failed) {
        throw std::runtime_error(std::string(kDfuChannel) + " cannot be opened");
    }
}

DaemonServer::~DaemonServer() {
    updater_->endMarloDownloader();
}

}  // namespace bench
