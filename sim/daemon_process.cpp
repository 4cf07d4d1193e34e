// SPDX-License-Identifier: Apache-2.0
#include "sim/daemon_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace sim {
namespace {

// The daemon logs a dozen lines per request: with room for many it does not wait for us each time.
constexpr int kPipeBytes = 1 << 20;
// A daemon that does nothing but log must not keep us from everything else.
constexpr int kReadsAtOnce = 16;

void limit(__rlimit_resource_t resource, uint64_t value) {
    const rlimit both = {value, value};
    setrlimit(resource, &both);
}

// Between fork and exec.
[[noreturn]] void become_daemon(const char* program, const char* root, int log, pid_t parent,
                                const DaemonLimits& limits) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);  // the parent died before the line above
    setpgid(0, 0);                      // Ctrl-C is for the parent, which then ends us
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(log, STDOUT_FILENO);
    dup2(log, STDERR_FILENO);
    close_range(STDERR_FILENO + 1, ~0u, 0);  // whatever else we were given
    setenv("MARLO_ROOT", root, 1);
    if (limits.memory) limit(RLIMIT_AS, *limits.memory);
    if (!limits.may_dump_core) limit(RLIMIT_CORE, 0);
    execl(program, program, static_cast<char*>(nullptr));
    dprintf(STDERR_FILENO, "cannot execute %s: %s\n", program, strerror(errno));
    _exit(127);
}

}  // namespace

DaemonProcess::DaemonProcess(const std::filesystem::path& program,
                             const std::filesystem::path& root, const DaemonLimits& limits) {
    if (std::filesystem::is_directory(program)) {
        throw std::runtime_error("cannot execute the daemon " + program.string() +
                                 ": it is a directory; --daemon names the program");
    }
    if (access(program.c_str(), X_OK) != 0) {
        throw std::runtime_error("cannot execute the daemon " + program.string() + ": " +
                                 std::strerror(errno) + "; --daemon names another one");
    }
    std::array<int, 2> pipe_ends;
    if (pipe2(pipe_ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    fcntl(pipe_ends[0], F_SETPIPE_SZ, kPipeBytes);  // refused: it works with the usual size, too
    fcntl(pipe_ends[0], F_SETFL, O_NONBLOCK);
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) become_daemon(program.c_str(), root.c_str(), pipe_ends[1], parent, limits);
    close(pipe_ends[1]);
    log_ = pipe_ends[0];
    if (pid_ < 0) {
        close(log_);
        throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
    }
}

DaemonProcess::~DaemonProcess() {
    if (!ended_) {
        signal(SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (log_ >= 0) close(log_);
}

std::vector<std::string> DaemonProcess::take_log() {
    std::vector<std::string> lines;
    std::array<char, 65536> buffer;
    for (int reads = 0; log_ >= 0 && reads < kReadsAtOnce; ++reads) {
        const ssize_t length = read(log_, buffer.data(), buffer.size());
        if (length < 0) break;
        if (length == 0) {
            close(log_);
            log_ = -1;
            if (std::string rest = lines_.rest(); !rest.empty()) lines.push_back(std::move(rest));
            break;
        }
        for (std::string& line : lines_.add({buffer.data(), static_cast<size_t>(length)})) {
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

std::optional<DaemonEnd> DaemonProcess::take_end() {
    int status = 0;
    if (ended_ || waitpid(pid_, &status, WNOHANG) != pid_) return std::nullopt;
    ended_ = true;
    if (WIFSIGNALED(status)) return DaemonEnd{std::nullopt, WTERMSIG(status)};
    return DaemonEnd{WEXITSTATUS(status), std::nullopt};
}

void DaemonProcess::signal(int number) {
    if (!ended_) kill(pid_, number);
}

}  // namespace sim
