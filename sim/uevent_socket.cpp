// SPDX-License-Identifier: Apache-2.0
#include "sim/uevent_socket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace sim {
namespace {

constexpr int kBacklog = 16;  // clients between two events

[[noreturn]] void fail(const std::string& path, const std::string& what) {
    throw std::runtime_error("cannot serve the socket " + path + ": " + what);
}

}  // namespace

UeventSocket::UeventSocket(const std::filesystem::path& root) {
    const std::string path = root / "run/marlo/uevent";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    constexpr size_t kLongest = sizeof address.sun_path - 1;
    if (path.size() > kLongest) {
        fail(path, "a socket's path has " + std::to_string(kLongest) +
                       " characters at most, this one " + std::to_string(path.size()) +
                       "; choose a shorter --root");
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    listener_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listener_ < 0) fail(path, std::strerror(errno));
    const auto* name = reinterpret_cast<const sockaddr*>(&address);
    if (bind(listener_, name, sizeof address) != 0 || listen(listener_, kBacklog) != 0) {
        const int error = errno;
        close(listener_);
        fail(path, std::strerror(error));
    }
}

UeventSocket::~UeventSocket() {
    for (const int client : clients_) close(client);
    close(listener_);
}

void UeventSocket::announce(int marlo_event) {
    const std::string variable = "MARLO_EVENT=" + std::to_string(marlo_event);
    send("add", "/devices/virtual/block/loop7", "block", "DEVTYPE=disk");
    send("change", "/devices/virtual/marlo_com/marlo_com_dev", "marlo_com", variable);
    // One that says the opposite, of a device that is none of the daemon's business.
    send("change", "/devices/virtual/polo_com/polo_com_dev", "polo_com",
         marlo_event == 1 ? "MARLO_EVENT=4" : "MARLO_EVENT=1");
}

void UeventSocket::send(const std::string& action, const std::string& device,
                        const std::string& subsystem, const std::string& variable) {
    const std::string number = std::to_string(++sequence_number_);
    std::string message;
    for (const auto& [name, value] : {std::pair(action + "@", device),
                                      {"ACTION=", action},
                                      {"DEVPATH=", device},
                                      {"SUBSYSTEM=", subsystem},
                                      {"", variable},
                                      {"SEQNUM=", number}}) {
        message.append(name).append(value).push_back('\0');
    }
    send(message);
}

void UeventSocket::send(const std::string& message) {
    take_clients();
    std::erase_if(clients_, [&message](int client) {
        const ssize_t sent =
            ::send(client, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        const bool gone = sent < 0 && errno != EAGAIN;
        if (gone) close(client);
        return gone;
    });
}

void UeventSocket::take_clients() {
    for (;;) {
        const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) return;
        clients_.push_back(client);
    }
}

}  // namespace sim
