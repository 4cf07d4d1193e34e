// SPDX-License-Identifier: Apache-2.0
#include "wire/little_endian.h"

namespace wire {

void Reader::skip(size_t count) {
    if (failed_ || count > bytes_.size() - position_) {
        failed_ = true;
        return;
    }
    position_ += count;
}

uint64_t Reader::integer(size_t width) {
    const size_t start = position_;
    skip(width);
    if (failed_) {
        return 0;
    }
    uint64_t value = 0;
    for (size_t index = 0; index < width; ++index) {
        value |= static_cast<uint64_t>(bytes_[start + index]) << (8 * index);
    }
    return value;
}

Writer& Writer::u16(uint16_t value) {
    into_.push_back(static_cast<uint8_t>(value));
    into_.push_back(static_cast<uint8_t>(value >> 8));
    return *this;
}

Writer& Writer::u32(uint32_t value) {
    return u16(static_cast<uint16_t>(value)).u16(static_cast<uint16_t>(value >> 16));
}

Writer& Writer::bytes(std::span<const uint8_t> from) {
    into_.insert(into_.end(), from.begin(), from.end());
    return *this;
}

}  // namespace wire
