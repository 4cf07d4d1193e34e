// SPDX-License-Identifier: Apache-2.0
// The functions that the product calls, each handed to the simulation of this process.
#include <cutils/properties.h>
#include <cutils/uevent.h>
#include <pthread.h>
#include <sys/mman.h>
#include <utils/SystemClock.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "platform/low_memory.h"
#include "platform/os.h"
#include "sim/remote_processors.h"
#include "sweep/simulation.h"

using namespace sweep;

namespace {

constexpr time_t kStartOfTime = 1'700'000'000;

// The result of a call of the kernel, as the C library gives it.
int64_t as_result(int64_t result) {
    if (result >= 0) return result;
    errno = static_cast<int>(-result);
    return -1;
}

// One call: `strike` is the occasion that it is. A fault that replaces the result is its result.
template <typename Call>
int64_t call(Occasion kind, const std::string& detail, Call action) {
    Simulation& now = simulation();
    now.count_call();
    const auto fault = now.occasion(kind, detail);
    int64_t result = 0;
    if (fault && fault->effect == Effect::kFails) {
        result = -fault->value;
    } else if (fault && fault->effect == Effect::kGives && fault->value == 0) {
        result = 0;
    } else {
        result = action(fault);
        // Done, but the answer is another one.
        if (fault && fault->effect == Effect::kGives && result >= 0) result = fault->value;
    }
    now.scheduler().yield();
    return as_result(result);
}

Occasion reading(const std::string& path) {
    return kind_of(path) == NodeKind::kChannel ? Occasion::kReadChannel : Occasion::kReadFile;
}

Occasion writing(const std::string& path) {
    switch (kind_of(path)) {
        case NodeKind::kChannel:
            return Occasion::kWriteChannel;
        case NodeKind::kWakeLock:
        case NodeKind::kWakeUnlock:
            return Occasion::kWake;
        default:
            return Occasion::kWriteFile;
    }
}

Occasion opening(const std::string& path) {
    switch (kind_of(path)) {
        case NodeKind::kChannel:
            return Occasion::kOpenChannel;
        case NodeKind::kControl:
            return Occasion::kOpenControl;
        default:
            return Occasion::kOpenFile;
    }
}

size_t shortened(size_t size, const std::optional<Fault>& fault) {
    if (!fault || fault->effect != Effect::kShortens) return size;
    return std::min(size, static_cast<size_t>(fault->value));
}

int64_t read_or_wait(int fd, std::span<uint8_t> into, std::optional<int64_t> offset) {
    Simulation& now = simulation();
    int64_t result = now.device().read(fd, into, offset);
    while (result == kWouldWait) {
        now.scheduler().wait([&now, fd] { return now.device().poll_events(fd) & ~POLLOUT; }, {});
        result = now.device().read(fd, into, offset);
    }
    return result;
}

int64_t read_call(int fd, void* buffer, size_t size, std::optional<int64_t> offset) {
    const std::string path = simulation().device().path_of(fd);
    return call(reading(path), path, [&](const std::optional<Fault>& fault) {
        auto* const into = static_cast<uint8_t*>(buffer);
        return read_or_wait(fd, {into, shortened(size, fault)}, offset);
    });
}

int64_t write_call(int fd, const void* buffer, size_t size, std::optional<int64_t> offset) {
    Device& device = simulation().device();
    const std::string path = device.path_of(fd);
    return call(writing(path), path, [&](const std::optional<Fault>& fault) {
        const auto* const from = static_cast<const uint8_t*>(buffer);
        return device.write(fd, {from, shortened(size, fault)}, offset);
    });
}

int sync_call(int fd) {
    Device& device = simulation().device();
    const std::string path = device.path_of(fd);
    return static_cast<int>(call(Occasion::kSync, path, [&](const auto&) -> int64_t {
        return device.is_open(fd) ? 0 : -EBADF;
    }));
}

int fill_events(pollfd* entries, nfds_t count) {
    int ready = 0;
    for (nfds_t i = 0; i < count; ++i) {
        entries[i].revents = 0;
        if (entries[i].fd < 0) continue;
        const int always = POLLHUP | POLLERR | POLLNVAL;
        entries[i].revents = static_cast<short>(simulation().device().poll_events(entries[i].fd) &
                                                (entries[i].events | always));
        ready += entries[i].revents != 0 ? 1 : 0;
    }
    return ready;
}

int64_t poll_or_wait(pollfd* entries, nfds_t count, int timeout_ms) {
    Scheduler& scheduler = simulation().scheduler();
    std::optional<int64_t> deadline;
    // cppcheck-suppress redundantAssignment ; of `deadline`, once
    if (timeout_ms >= 0) deadline = scheduler.now() + int64_t{timeout_ms} * 1'000'000;
    int ready = fill_events(entries, count);
    if (ready == 0) {
        scheduler.wait([entries, count] { return fill_events(entries, count) > 0; }, deadline);
        ready = fill_events(entries, count);
    }
    return ready;
}

void sleep_for(int64_t nanoseconds) {
    simulation().count_call();
    Scheduler& scheduler = simulation().scheduler();
    scheduler.wait([] { return false; }, scheduler.now() + nanoseconds);
}

// The product's own memory: the simulated kernel is in the same process.
class OwnMemory : public sim::UserMemory {
  public:
    bool read(uint32_t address, std::span<uint8_t> into) override {
        std::memcpy(into.data(), at(address), into.size());
        return true;
    }
    bool write(uint32_t address, std::span<const uint8_t> from) override {
        std::memcpy(at(address), from.data(), from.size());
        return true;
    }

  private:
    static void* at(uint32_t address) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the daemon hands addresses as numbers
        return reinterpret_cast<void*>(static_cast<uintptr_t>(address));
    }
};

// Of the remote processors; the directory itself comes first.
struct Listing {
    size_t next = 0;
    dirent current{};
};

}  // namespace

namespace os {

void initialize() {}

int open(const char* path, int flags, mode_t mode) {
    return static_cast<int>(call(opening(path), path, [&](const auto&) {
        return simulation().device().open(path, flags, mode);
    }));
}
int close(int fd) {
    simulation().count_call();
    return static_cast<int>(as_result(simulation().device().close(fd)));
}
ssize_t read(int fd, void* buffer, size_t size) {
    return static_cast<ssize_t>(read_call(fd, buffer, size, {}));
}
ssize_t pread(int fd, void* buffer, size_t size, off_t offset) {
    return static_cast<ssize_t>(read_call(fd, buffer, size, offset));
}
ssize_t write(int fd, const void* buffer, size_t size) {
    return static_cast<ssize_t>(write_call(fd, buffer, size, {}));
}
ssize_t pwrite(int fd, const void* buffer, size_t size, off_t offset) {
    return static_cast<ssize_t>(write_call(fd, buffer, size, offset));
}
int fsync(int fd) {
    return sync_call(fd);
}
int fdatasync(int fd) {
    return sync_call(fd);
}
int fstat(int fd, struct stat* status) {
    const auto file = simulation().device().file_of(fd);
    const std::string path = simulation().device().path_of(fd);
    return static_cast<int>(call(Occasion::kStat, path, [&](const auto&) -> int64_t {
        if (file == nullptr) return -EBADF;
        *status = {};
        status->st_size = static_cast<off_t>(file->bytes.size());
        status->st_mode = file->mode;
        return 0;
    }));
}
int poll(struct pollfd* entries, nfds_t count, int timeout_ms) {
    simulation().count_poll();
    return static_cast<int>(call(Occasion::kPoll, "", [&](const std::optional<Fault>& fault) {
        if (!fault) return poll_or_wait(entries, count, timeout_ms);
        for (nfds_t i = 0; i < count; ++i) entries[i].revents = 0;
        entries[count - 1].revents = static_cast<short>(fault->value);
        return int64_t{1};
    }));
}
int ioctl(int fd, uint32_t request, void* argument) {
    return static_cast<int>(call(Occasion::kIoctl, "", [&](const auto&) {
        OwnMemory memory;
        constexpr size_t kBlockSize = 32;
        // The read-only requests hand the kernel no input.
        const bool has_input = ((request >> 30) & 1) != 0;
        Bytes block;
        const auto* const bytes = static_cast<const uint8_t*>(argument);
        if (has_input) block.assign(bytes, bytes + kBlockSize);
        return simulation().device().ioctl(fd, request, block, memory);
    }));
}
int pipe(int ends[2]) {
    return static_cast<int>(call(
        Occasion::kPipe, "", [&](const auto&) { return simulation().device().make_pipe(ends); }));
}
int rename_to_new(const char* from, const char* to) {
    return static_cast<int>(call(Occasion::kRename, "", [&](const auto&) {
        return simulation().device().rename(from, to);
    }));
}
int unlink(const char* path) {
    return static_cast<int>(call(Occasion::kUnlink, "",
                                 [&](const auto&) { return simulation().device().unlink(path); }));
}

DIR* opendir(const char* path) {
    const auto result = call(Occasion::kList, path, [](const auto&) { return int64_t{0}; });
    return result < 0 ? nullptr : reinterpret_cast<DIR*>(new Listing{});
}
dirent* readdir(DIR* directory) {
    auto* const listing = reinterpret_cast<Listing*>(directory);
    const size_t index = listing->next++;
    if (index > std::size(sim::kRemoteProcessors)) return nullptr;
    const std::string_view name = index == 0 ? "." : sim::kRemoteProcessors[index - 1].directory;
    listing->current.d_type = index == 0 ? DT_DIR : DT_LNK;
    listing->current.d_name[name.copy(listing->current.d_name, 255)] = '\0';
    return &listing->current;
}
int closedir(DIR* directory) {
    delete reinterpret_cast<Listing*>(directory);
    return 0;
}

unsigned int sleep(unsigned int seconds) {
    sleep_for(int64_t{seconds} * 1'000'000'000);
    return 0;
}
int usleep(useconds_t microseconds) {
    sleep_for(int64_t{microseconds} * 1'000);
    return 0;
}
time_t time() {
    return kStartOfTime + static_cast<time_t>(simulation().scheduler().now() / 1'000'000'000);
}

std::thread start_thread(std::function<void()> body) {
    std::thread thread;
    const auto result = call(Occasion::kThread, "", [&](const auto&) {
        thread = simulation().scheduler().start(std::move(body));
        return int64_t{0};
    });
    if (result < 0) throw std::system_error(errno, std::generic_category(), "start_thread");
    return thread;
}
void join_thread(std::thread& thread) {
    simulation().scheduler().join(thread);
}

void* map_below_4gib(size_t size) {
    void* memory = nullptr;
    call(Occasion::kMemory, "", [&](const auto&) {
        memory = map_low_memory(size);
        return int64_t{0};
    });
    return memory;
}
void unmap(void* memory, size_t size) {
    ::munmap(memory, size);
}
void use_large_pages(void* /*memory*/, size_t /*size*/) {}

}  // namespace os

int uevent_open_socket(int, bool) {
    simulation().count_call();
    return simulation().device().open_uevents();
}

ssize_t uevent_kernel_multicast_recv(int, void* buffer, size_t length) {
    Simulation& now = simulation();
    now.count_call();
    now.scheduler().wait([&now] { return now.device().has_uevent(); }, {});
    now.occasion(Occasion::kUevent, "");
    const std::string message = now.device().receive_uevent();
    const size_t count = std::min(length, message.size());
    std::memcpy(buffer, message.data(), count);
    return static_cast<ssize_t>(count);
}

int property_get(const char* key, char* value, const char* default_value) {
    std::string found = simulation().device().property(key);
    if (found.empty() && default_value != nullptr) found = default_value;
    std::memcpy(value, found.c_str(), found.size() + 1);
    return static_cast<int>(found.size());
}

int property_set(const char* key, const char* value) {
    return static_cast<int>(call(Occasion::kProperty, key, [&](const auto&) {
        simulation().device().set_property(key, value);
        return int64_t{0};
    }));
}

namespace android {

int64_t elapsedRealtimeNano() {
    return simulation().scheduler().now();
}

}  // namespace android

// A lock of the product that another thread holds across a wait is waited for like anything else:
// linked in place of the C library's (--wrap), with that one behind it.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker asks for these names
extern "C" int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (!Scheduler::is_at_work()) return __real_pthread_mutex_lock(mutex);
    const auto is_free = [mutex] {
        if (pthread_mutex_trylock(mutex) != 0) return false;
        pthread_mutex_unlock(mutex);
        return true;
    };
    while (pthread_mutex_trylock(mutex) != 0) simulation().scheduler().wait(is_free, {});
    return 0;
}
// NOLINTEND(bugprone-reserved-identifier)
