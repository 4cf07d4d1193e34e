// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/root.h"

#include <stdlib.h>

namespace os {

const std::string& root_prefix() {
    static const std::string prefix = [] {
        std::string directory;
#ifndef __ANDROID__  // there, the environment has no say in what is opened
        if (const char* value = secure_getenv("MARLO_ROOT"); value != nullptr) {
            directory = value;
        }
#endif
        while (!directory.empty() && directory.back() == '/') {
            directory.pop_back();
        }
        return directory;
    }();
    return prefix;
}

std::string under_root(const char* path) {
    return path[0] == '/' ? root_prefix() + path : std::string(path);
}

}  // namespace os
