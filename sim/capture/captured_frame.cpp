// SPDX-License-Identifier: Apache-2.0
#include "sim/capture/captured_frame.h"

#include "sim/packet_words.h"

namespace sim {
namespace {

constexpr uint8_t kVersion = 1;

}  // namespace

Bytes encode(const CapturedFrame& frame) {
    Bytes bytes = {kVersion, static_cast<uint8_t>(frame.kind), static_cast<uint8_t>(frame.source),
                   static_cast<uint8_t>(frame.direction)};
    append_words(bytes, {static_cast<uint32_t>(frame.result)});
    bytes.insert(bytes.end(), frame.body.begin(), frame.body.end());
    return bytes;
}

}  // namespace sim
