// SPDX-License-Identifier: Apache-2.0
#include "bench/channel_open.h"

#include <fcntl.h>

#include <map>
#include <mutex>
#include <string_view>

#include "platform/linux/root.h"
#include "platform/os.h"

namespace {

struct Offers {
    std::mutex mutex;
    std::map<std::string, int, std::less<>> channels;
    std::map<std::string, std::string> beginnings;
};
Offers& offers() {
    static Offers instance;
    return instance;
}

// The name by which `path` is known to the system.
std::string real_name(const Offers& all, std::string_view path) {
    for (const auto& [beginning, instead] : all.beginnings) {
        if (path.starts_with(beginning)) {
            return instead + std::string(path.substr(beginning.size()));
        }
    }
    return os::under_root(path.data());
}

}  // namespace

namespace bench {

void offer_channel(const std::string& device_path, int fd) {
    Offers& all = offers();
    const std::lock_guard lock(all.mutex);
    all.channels[device_path] = fd;
}

void open_instead(const std::string& beginning, const std::string& instead) {
    Offers& all = offers();
    const std::lock_guard lock(all.mutex);
    all.beginnings[beginning] = instead;
}

}  // namespace bench

namespace os {

int open(const char* path, int flags, mode_t mode) {
    Offers& all = offers();
    const std::lock_guard lock(all.mutex);
    const auto channel = all.channels.find(std::string_view(path));
    if (channel != all.channels.end() && channel->second >= 0) {
        return ::fcntl(channel->second, F_DUPFD_CLOEXEC, 0);
    }
    return ::open(real_name(all, path).c_str(), flags, mode);
}

}  // namespace os
