// SPDX-License-Identifier: Apache-2.0
#include "bench/block_coprocessor.h"

#include <libdeflate.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

#include "bench/held_signals.h"
#include "rma/rma_messages.h"
#include "wire/little_endian.h"

namespace bench {
namespace {

using wire::put_word_at;
using wire::word_at;

double rate_of(uint32_t count, const std::function<void(uint32_t number)>& do_one) {
    HeldSignals::throw_if_pending();
    const auto begin = std::chrono::steady_clock::now();
    for (uint32_t done = 0; done < count; ++done) {
        do_one(done % kPartitionBlocks);
    }
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
    return count / passed.count();
}

}  // namespace

BlockCoprocessor::BlockCoprocessor()
    : request_(kBlockHeadBytes + kBlockBytes), answer_(kBlockHeadBytes + kBlockBytes) {
    const timeval patience = {.tv_sec = 10, .tv_usec = 0};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends_) != 0 ||
        ::setsockopt(ends_[0], SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) != 0) {
        throw std::runtime_error(std::string("no channel for the RMA service: ") +
                                 std::strerror(errno));
    }
    put_word_at(request_, 12, kPartitionId);
    put_word_at(request_, 16, kPartitionId);
    put_word_at(request_, 24, kBlockBytes);
}

BlockCoprocessor::~BlockCoprocessor() {
    ::close(ends_[0]);
    ::close(ends_[1]);
}

void BlockCoprocessor::connect() {
    std::vector<uint8_t> message(rma::kConnectSize);
    put_word_at(message, 4, rma::kConnectSize);
    put_word_at(message, 8, rma::CONNECT);
    put_word_at(message, 16, kPartitionId);
    put_word_at(message, 24, kPartitionBlocks * kBlockBytes);
    send(message);
    answer(rma::CONNECT_RESPONSE, 36);
}

double BlockCoprocessor::read_blocks(uint32_t count) {
    return rate_of(count, [this](uint32_t number) { read_block(number); });
}

double BlockCoprocessor::write_blocks(uint32_t count) {
    return rate_of(count, [this](uint32_t number) { write_block(number); });
}

void BlockCoprocessor::check() {
    constexpr uint32_t kChecked = 16;
    const auto contents = [](uint32_t number) { return static_cast<uint8_t>(number * 7 + 1); };
    for (uint32_t number = 0; number < kChecked; ++number) {
        std::fill(request_.begin() + kBlockHeadBytes, request_.end(), contents(number));
        write_block(number);
    }
    for (uint32_t number = 0; number < kChecked; ++number) {
        const Bytes read = read_block(number);
        const Bytes block = read.subspan(kBlockHeadBytes);
        const auto is_right = [&](uint8_t byte) { return byte == contents(number); };
        if (!std::all_of(block.begin(), block.end(), is_right) ||
            word_at(read, 0) != libdeflate_crc32(0, read.data() + 4, read.size() - 4)) {
            throw std::runtime_error("block " + std::to_string(number) +
                                     " is not read as it was written");
        }
    }
}

BlockCoprocessor::Bytes BlockCoprocessor::read_block(uint32_t number) {
    put_word_at(request_, 4, kBlockHeadBytes);
    put_word_at(request_, 8, rma::DATA_READ);
    put_word_at(request_, 20, number * kBlockBytes);
    send(Bytes(request_).first(kBlockHeadBytes));
    return answer(rma::DATA_READ_RESPONSE, kBlockHeadBytes + kBlockBytes);
}

void BlockCoprocessor::write_block(uint32_t number) {
    put_word_at(request_, 4, static_cast<uint32_t>(request_.size()));
    put_word_at(request_, 8, rma::DATA_WRITE);
    put_word_at(request_, 20, number * kBlockBytes);
    send(Bytes(request_).first(kFirstPacketBytes));
    send(Bytes(request_).subspan(kFirstPacketBytes));
    if (word_at(answer(rma::DATA_WRITE_RESPONSE, kBlockHeadBytes), 28) != rma::DONE) {
        throw std::runtime_error("block " + std::to_string(number) + " was not written");
    }
}

void BlockCoprocessor::send(Bytes message) {
    if (::send(ends_[0], message.data(), message.size(), MSG_NOSIGNAL) < 0) {
        throw std::runtime_error(std::string("a request of the RMA channel: ") +
                                 std::strerror(errno));
    }
}

BlockCoprocessor::Bytes BlockCoprocessor::answer(uint32_t command, size_t size) {
    const ssize_t count = ::read(ends_[0], answer_.data(), answer_.size());
    if (count < 0) {
        throw std::runtime_error(std::string("no answer on the RMA channel: ") +
                                 std::strerror(errno));
    }
    const Bytes received = Bytes(answer_).first(static_cast<size_t>(count));
    if (received.size() != size || word_at(received, 8) != command) {
        throw std::runtime_error("an answer of " + std::to_string(count) + " bytes and command " +
                                 std::to_string(word_at(received, 8)) + " instead of " +
                                 std::to_string(size) + " and " + std::to_string(command));
    }
    return received;
}

}  // namespace bench
