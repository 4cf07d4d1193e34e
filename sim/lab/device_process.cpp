// SPDX-License-Identifier: Apache-2.0
#include "sim/lab/device_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "sim/lab/signal_name.h"

namespace sim {
namespace {

// `option`: of ulimit.
[[noreturn]] void fail(const std::string& operation, __rlimit_resource_t resource,
                       const std::string& option) {
    const std::string why = std::strerror(errno);
    rlimit limit{};
    getrlimit(resource, &limit);
    throw std::runtime_error(operation + ": " + why + " (`ulimit " + option + "` is " +
                             std::to_string(limit.rlim_cur) + "; a higher one, or in a container" +
                             " a higher limit of its own, allows more)");
}

// What the parent has open is none of ours.
// Nothing may be thrown out of it: the parent's objects are not for this process to take down.
[[noreturn]] void become_device(const std::function<void(int)>& body, int pipe,
                                pid_t parent) noexcept {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(1);  // the parent died before the line above
    const auto kept = static_cast<unsigned>(pipe);
    if (kept > STDERR_FILENO + 1) close_range(STDERR_FILENO + 1, kept - 1, 0);
    close_range(kept + 1, ~0u, 0);
    body(pipe);
    _exit(0);
}

}  // namespace

DeviceProcess::DeviceProcess(const std::function<void(int pipe)>& body) {
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) != 0) fail("cannot make a pipe", RLIMIT_NOFILE, "-n");
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) become_device(body, ends[1], parent);
    const int error = errno;
    close(ends[1]);
    if (pid_ < 0) {
        close(ends[0]);
        errno = error;
        fail("cannot start a process", RLIMIT_NPROC, "-u");
    }
    pipe_ = ends[0];
}

DeviceProcess::~DeviceProcess() {
    signal(SIGKILL);
    wait_for_end();
}

std::vector<std::string> DeviceProcess::take_lines() {
    std::vector<std::string> lines;
    std::array<char, 4096> buffer;
    while (pipe_ >= 0) {
        const ssize_t length = read(pipe_, buffer.data(), buffer.size());
        if (length < 0) break;
        if (length == 0) {
            wait_for_end();
            break;
        }
        for (std::string& line : lines_.add({buffer.data(), static_cast<size_t>(length)})) {
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

// It has closed its end, or is about to.
void DeviceProcess::wait_for_end() {
    if (ended_) return;
    waitpid(pid_, &status_, 0);
    ended_ = true;
    close(pipe_);
    pipe_ = -1;
}

std::string DeviceProcess::how_it_ended() const {
    if (WIFSIGNALED(status_)) return "was ended by " + signal_name(WTERMSIG(status_));
    return "ended with exit status " + std::to_string(WEXITSTATUS(status_));
}

void DeviceProcess::signal(int number) const {
    if (!ended_) kill(pid_, number);
}

}  // namespace sim
