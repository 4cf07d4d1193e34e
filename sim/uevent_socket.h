// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace sim {

// Stands for the kernel's announcements: who connects to ROOT/run/marlo/uevent receives every event
// from then on, one message each, and sends nothing.
class UeventSocket {
  public:
    // ROOT/run/marlo exists. Throws std::runtime_error naming the socket.
    explicit UeventSocket(const std::filesystem::path& root);
    ~UeventSocket();
    UeventSocket(const UeventSocket&) = delete;
    UeventSocket& operator=(const UeventSocket&) = delete;

    // An event of the co-processor's device, in the midst of those that other devices send. It
    // never waits: who has not read for long misses events, as with the kernel.
    void announce(int marlo_event);
    // Any message, which is not empty.
    void send(const std::string& message);

  private:
    void send(const std::string& action, const std::string& device, const std::string& subsystem,
              const std::string& variable);
    void take_clients();

    int listener_;
    std::vector<int> clients_;
    uint64_t sequence_number_ = 4711;
};

}  // namespace sim
