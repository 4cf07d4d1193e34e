// SPDX-License-Identifier: Apache-2.0
// In a file of its own: a program that hands out descriptors of its own links the other calls
// without this one (bench/channel_open.cpp).
#include "platform/linux/root.h"
#include "platform/os.h"

namespace os {

int open(const char* path, int flags, mode_t mode) {
    return ::open(under_root(path).c_str(), flags, mode);
}

}  // namespace os
