// SPDX-License-Identifier: Apache-2.0
#include "comhandler/client_wakelock.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "daemon/marlo_deamon_log.h"
#include "platform/os.h"

namespace {

constexpr const char* kLockPath = "/sys/power/wake_lock";
constexpr const char* kUnlockPath = "/sys/power/wake_unlock";
constexpr const char* kName = "MARLODAEMON_WAKEUP";

// The kernel takes the name with its terminating NUL.
bool write_name(int fd) {
    return os::write(fd, kName, std::strlen(kName) + 1) > 0;
}

// -1, which stays for good, where the file cannot be opened.
int open_wake_file(const char* path) {
    const int fd = os::open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        MARLO_LOG_FOR("client_wakelock", error, "fatal error opening \"%s\": %s\n", path,
                      strerror(errno));
    }
    return fd;
}

bool is_open(int fd, const char* function) {
    if (fd < 0) {
        MARLO_LOG_FOR(function, error, "Not able to open fd for wakeup:%s", kName);
    }
    return fd >= 0;
}

}  // namespace

client_wakelock* client_wakelock::get_instance() {
    static client_wakelock* const instance = new client_wakelock();
    return instance;
}

client_wakelock::client_wakelock() {
    _lock_fd = open_wake_file(kLockPath);
    _unlock_fd = open_wake_file(kUnlockPath);
}

void client_wakelock::get_n_locks(int count) {
    const std::lock_guard lock(_mutex);
    const auto references = static_cast<uint32_t>(count);
    if (references > UINT32_MAX - _accu_count) {
        MARLO_LOG(error, "_in_count %d will overflow max of _accu_count %u", count, _accu_count);
        return;
    }
    if (_accu_count == 0 && !_held) {
        acquire();
    }
    _accu_count += references;
}

void client_wakelock::put_n_locks(unsigned int count) {
    const std::lock_guard lock(_mutex);
    if (count > _accu_count) {
        MARLO_LOG(error, "_in_count %d is larger than _accu_count %u", static_cast<int>(count),
                  _accu_count);
        return;
    }
    _accu_count -= count;
    if (_accu_count == 0 && _held) {
        release();
    }
}

void client_wakelock::acquire() {
    if (!is_open(_lock_fd, __func__)) {
        return;
    }
    if (!write_name(_lock_fd)) {
        MARLO_LOG(error, "write fail wakelock acquire:%s, error = %s", kName, strerror(errno));
        return;
    }
    MARLO_LOG(verbose, "sucess wakelock acquire:%s", kName);
    _held = true;
    _acquired.notify_one();
}

void client_wakelock::release() {
    if (!is_open(_unlock_fd, __func__)) {
        return;
    }
    if (!write_name(_unlock_fd)) {
        MARLO_LOG(error, "failed in write:%s wake unlock, error = %s", kName, strerror(errno));
        return;
    }
    MARLO_LOG(verbose, "sucess release %s wakelock", kName);
    _held = false;
}
