// SPDX-License-Identifier: Apache-2.0
// What a capture holds of one thing that happened at the device files, and its bytes.
//
// All numbers are little-endian words of four bytes unless told otherwise. A frame is a header,
// then the body:
//     byte 0   version of this layout: 1
//     byte 1   kind, see FrameKind
//     byte 2   source, see FrameSource: where it happened
//     byte 3   direction, see FrameDirection
//     byte 4   result, signed: what the daemon got for it; negative: an errno
// The body of each kind:
//     packet       the packet. Result: the bytes taken of one from the daemon, else 0
//     command      number of the request; size of its block, 32 or 0; the block; then for each
//                  access to the daemon's memory: direction (1 written, 2 read), address, size of
//                  the bytes that were asked for, 1 (done, and the bytes follow) or 0 (refused,
//                  and none do). Result: of the request
//     open, close  empty. Result: 0, or why it cannot be opened
//     hang-up      empty
//     read error   empty. Result: what the read fails with
//     firmware     the first frame: text, a line for each image ("image ID SIZE NAME") and for each
//                  range of the flash that is to be erased ("range OFFSET SIZE NAME"). These names
//                  never cross the device files
// tools/wireshark/marlo.lua reads it.
#pragma once

#include <cstdint>

#include "sim/observer.h"

namespace sim {

enum class FrameKind : uint8_t {
    kPacket = 0,
    kCommand = 1,
    kOpen = 2,
    kClose = 3,
    kHangUp = 4,
    kReadError = 5,
    kFirmware = 6,
};

enum class FrameSource : uint8_t { kControl = 0, kDfu = 1, kMiscData = 2, kRma = 3 };

enum class FrameDirection : uint8_t { kNone = 0, kToDaemon = 1, kFromDaemon = 2 };

struct CapturedFrame {
    Time time;
    FrameKind kind;
    FrameSource source;
    FrameDirection direction = FrameDirection::kNone;
    int32_t result = 0;
    Bytes body = {};
};

Bytes encode(const CapturedFrame& frame);

class FrameObserver {
  public:
    virtual ~FrameObserver() = default;
    virtual void frame(const CapturedFrame& frame) = 0;
};

}  // namespace sim
