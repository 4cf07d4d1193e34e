// SPDX-License-Identifier: Apache-2.0
#include "bench/coprocessor.h"

#include <libdeflate.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>

#include "fwupdater/dfu_messages.h"
#include "wire/little_endian.h"

namespace bench {
namespace {

constexpr size_t kCrcOffset = 12;
constexpr size_t kOffsetOffset = 20;

void check_answer(const Course& course, std::span<const uint8_t> image, uint32_t offset,
                  std::span<const uint8_t> packet) {
    std::vector<uint8_t> expected = request_for(course, offset);
    wire::put_word_at(expected, 0, dfu::IMG_OFFSET_RESP);
    wire::put_word_at(expected, 8, static_cast<uint32_t>(packet.size()));
    const auto fragment = image.subspan(offset, course.fragment_bytes);
    expected.insert(expected.end(), fragment.begin(), fragment.end());
    wire::put_word_at(expected, kCrcOffset, libdeflate_crc32(0, expected.data(), expected.size()));
    if (!std::equal(packet.begin(), packet.end(), expected.begin(), expected.end())) {
        throw std::runtime_error("the answer for offset " + std::to_string(offset) + " is wrong");
    }
}

}  // namespace

std::vector<uint8_t> request_for(const Course& course, uint32_t offset) {
    std::vector<uint8_t> request(kRequestBytes);
    wire::put_word_at(request, 0, dfu::IMG_OFFSET_REQ);
    wire::put_word_at(request, 4, dfu::DFU_MAGIC);
    wire::put_word_at(request, 8, kRequestBytes);
    wire::put_word_at(request, 16, course.image_id);
    wire::put_word_at(request, kOffsetOffset, offset);
    wire::put_word_at(request, 24, course.fragment_bytes);
    return request;
}

void check_service(Coprocessor& coprocessor, const Course& course, std::span<const uint8_t> image) {
    coprocessor.ask_for(course.image_bytes / course.fragment_bytes,
                        [&](uint32_t offset, std::span<const uint8_t> packet) {
                            check_answer(course, image, offset, packet);
                        });
}

SocketCoprocessor::SocketCoprocessor(const Course& course)
    : course_(course), answer_(kAnswerHeadBytes + course.fragment_bytes + 1) {
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends_) != 0) {
        throw std::runtime_error(std::string("no socket pair: ") + std::strerror(errno));
    }
}

SocketCoprocessor::~SocketCoprocessor() {
    ::close(ends_[0]);
    if (ends_[1] >= 0) {
        ::close(ends_[1]);
    }
}

void SocketCoprocessor::release_hosts_end() {
    ::close(ends_[1]);
    ends_[1] = -1;
}

void SocketCoprocessor::await_server() {
    if (::read(ends_[0], answer_.data(), answer_.size()) <= 0) {
        throw std::runtime_error("the server has ended before it could be asked");
    }
}

double SocketCoprocessor::ask_for(uint64_t fragments, const Observer& observer) {
    std::vector<uint8_t> request = request_for(course_, 0);
    const size_t answer_bytes = answer_.size() - 1;
    uint32_t offset = 0;
    const auto begin = std::chrono::steady_clock::now();
    for (uint64_t fragment = 0; fragment < fragments; ++fragment) {
        wire::put_word_at(request, kOffsetOffset, offset);
        ::send(ends_[0], request.data(), request.size(), MSG_NOSIGNAL);
        const ssize_t count = ::read(ends_[0], answer_.data(), answer_.size());
        if (count != static_cast<ssize_t>(answer_bytes)) {
            throw std::runtime_error("an answer of " + std::to_string(count) + " bytes came, not " +
                                     std::to_string(answer_bytes));
        }
        if (observer) {
            observer(offset, {answer_.data(), answer_bytes});
        }
        offset += course_.fragment_bytes;
        offset = offset == course_.image_bytes ? 0 : offset;
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace bench
