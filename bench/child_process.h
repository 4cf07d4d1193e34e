// SPDX-License-Identifier: Apache-2.0
// Programs of others, started without a shell, and the CPU time that they take.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace bench {

// Owns an open file; -1 for none.
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }

  private:
    int fd_;
};

// Reads from `output` what is written to `input`; neither is inherited by a program. Throws
// std::runtime_error.
struct Pipe {
    Descriptor output;
    Descriptor input;
};
Pipe make_pipe();

// A nameless file in memory, and all that is in it.
Descriptor make_memory_file();
std::string contents_of(const Descriptor& file);

class ChildProcess {
  public:
    struct Wiring {
        // Standard input and output: descriptors of the caller's; nothing where they are negative.
        int input = -1;
        int output = -1;
        std::string directory = {};  // to run in; the caller's where it is empty
    };

    // Starts words[0], looked up in PATH where it has no slash. It inherits the caller's cores.
    // Throws std::runtime_error, naming it, where it is missing or does not start.
    explicit ChildProcess(std::vector<std::string> words, const Wiring& wiring);
    // Kills it unless it has ended.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Waits for its end: the CPU seconds that it took, user and system. Throws std::runtime_error,
    // naming it, where it has failed (with what it wrote to standard error) or takes longer than
    // two minutes, and where a signal that is held asks for the end (bench/held_signals.h).
    double finish();

    // The same until now, for one that has not ended: of all its threads, the ended ones too.
    double cpu_seconds() const;

  private:
    void wait_for_end() const;
    std::string failure(int status) const;

    std::string program_;
    Descriptor errors_;
    pid_t id_ = -1;  // -1: waited for
};

}  // namespace bench
