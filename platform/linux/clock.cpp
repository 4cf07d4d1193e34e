// SPDX-License-Identifier: Apache-2.0
// The boot clock behind Android's declaration; Debian's library with the original draws in four
// others for this one call.
#include <time.h>
#include <utils/SystemClock.h>

namespace android {

int64_t elapsedRealtimeNano() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

}  // namespace android
