// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/host_reader.h"

#include <cerrno>
#include <utility>

#include "sim/packet_words.h"

namespace sim {
namespace {

constexpr int kReadRetries = 3;  // after which the host gives up
constexpr uint32_t kLongestMessage = 16 * 1024 * 1024;

}  // namespace

void HostReader::begin() {
    received_.clear();
    is_first_ = true;
    framed_ = false;
    wanted_ = 0;
    retries_ = 0;
    empty_reads_ = 0;
}

HostReader::Outcome HostReader::took(std::span<const uint8_t> bytes) {
    received_.insert(received_.end(), bytes.begin(), bytes.end());
    if (std::exchange(is_first_, false)) {
        framed_ = received_.size() >= framing_.enough;
        wanted_ = framed_ ? word_at(received_, framing_.length_at) : 0;
        if (wanted_ > kLongestMessage) return failed(EMSGSIZE);
    } else if (bytes.empty() && ++empty_reads_ == kReadRetries) {
        return failed(EIO);
    }
    return received_.size() < wanted_ ? Outcome::kMore : complete();
}

HostReader::Outcome HostReader::complete() {
    message_ = std::exchange(received_, {});
    const bool empty = message_.empty() || (framed_ && wanted_ == 0);
    message_.resize(framed_ ? wanted_ : framing_.first_read);
    begin();
    return empty ? Outcome::kNothing : Outcome::kMessage;
}

HostReader::Outcome HostReader::failed(int error) {
    if (error == EAGAIN && ++retries_ < kReadRetries) return Outcome::kMore;
    begin();
    return Outcome::kFailed;
}

}  // namespace sim
