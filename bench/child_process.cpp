// SPDX-License-Identifier: Apache-2.0
#include "bench/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "bench/held_signals.h"

namespace bench {
namespace {

// Each transfer takes a few seconds at most: what has not ended by then has lost its partner.
constexpr int kTimeLimitMs = 120'000;

Descriptor opened(int fd, const char* what) {
    if (fd < 0) {
        throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
    }
    return Descriptor(fd);
}

double seconds_of(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// The settings of posix_spawn, freed at destruction.
struct SpawnSettings {
    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};

    SpawnSettings() {
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawnattr_init(&attributes);
        // The signals that are held here are for the program to be ended by.
        sigset_t none;
        ::sigemptyset(&none);
        ::posix_spawnattr_setsigmask(&attributes, &none);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
};

}  // namespace

Descriptor::~Descriptor() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

Pipe make_pipe() {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("no pipe: ") + std::strerror(errno));
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

Descriptor make_memory_file() {
    return opened(::memfd_create("marlo-bench", MFD_CLOEXEC), "no file in memory");
}

std::string contents_of(const Descriptor& file) {
    std::string contents;
    char part[1024];
    ssize_t count = 0;
    while ((count = ::pread(file.get(), part, sizeof(part), static_cast<off_t>(contents.size()))) >
           0) {
        contents.append(part, static_cast<size_t>(count));
    }
    return contents;
}

ChildProcess::ChildProcess(std::vector<std::string> words, const Wiring& wiring)
    : program_(words.at(0)), errors_(make_memory_file()) {
    const Descriptor nothing = opened(::open("/dev/null", O_RDWR | O_CLOEXEC), "/dev/null");
    SpawnSettings settings;
    const int files[] = {wiring.input < 0 ? nothing.get() : wiring.input,
                         wiring.output < 0 ? nothing.get() : wiring.output, errors_.get()};
    for (int number = 0; number < 3; ++number) {
        ::posix_spawn_file_actions_adddup2(&settings.actions, files[number], number);
    }
    if (!wiring.directory.empty()) {
        ::posix_spawn_file_actions_addchdir_np(&settings.actions, wiring.directory.c_str());
    }
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const int error = ::posix_spawnp(&id_, program_.c_str(), &settings.actions,
                                     &settings.attributes, arguments.data(), environ);
    if (error != 0) {
        id_ = -1;
        throw std::runtime_error(error == ENOENT
                                     ? program_ + " is missing: ./dev bench installs it"
                                     : program_ + " does not start: " + std::strerror(error));
    }
}

ChildProcess::~ChildProcess() {
    if (id_ > 0) {
        ::kill(id_, SIGKILL);
        ::waitpid(id_, nullptr, 0);
    }
}

double ChildProcess::finish() {
    wait_for_end();
    int status = 0;
    rusage usage{};
    ::wait4(std::exchange(id_, -1), &status, 0, &usage);
    if (status != 0) {
        throw std::runtime_error(failure(status));
    }
    return seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime);
}

void ChildProcess::wait_for_end() const {
    const sigset_t held = HeldSignals::signals();
    const Descriptor process =
        opened(static_cast<int>(::syscall(SYS_pidfd_open, id_, 0)), "no descriptor of a process");
    const Descriptor signals = opened(::signalfd(-1, &held, SFD_CLOEXEC), "no signals");
    pollfd entries[] = {{process.get(), POLLIN, 0}, {signals.get(), POLLIN, 0}};
    int ready = 0;
    do {
        ready = ::poll(entries, 2, kTimeLimitMs);
    } while (ready < 0 && errno == EINTR);
    if (entries[1].revents != 0) {
        throw std::runtime_error("ended by a signal while " + program_ + " was running");
    }
    if (ready < 1) {
        throw std::runtime_error(program_ + " has not ended after " +
                                 std::to_string(kTimeLimitMs / 1000) + " s");
    }
}

std::string ChildProcess::failure(int status) const {
    const std::string how = WIFSIGNALED(status)
                                ? " was ended by signal " + std::to_string(WTERMSIG(status))
                                : " failed with " + std::to_string(WEXITSTATUS(status));
    const std::string said = contents_of(errors_);
    return program_ + how + (said.empty() ? "" : ": " + said);
}

double ChildProcess::cpu_seconds() const {
    clockid_t clock = 0;
    timespec time{};
    const int error = ::clock_getcpuclockid(id_, &clock);
    if (error != 0 || ::clock_gettime(clock, &time) != 0) {
        throw std::runtime_error("no CPU time of " + program_ + ": " +
                                 std::strerror(error != 0 ? error : errno));
    }
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

}  // namespace bench
