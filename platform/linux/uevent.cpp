// SPDX-License-Identifier: Apache-2.0
// Kernel uevents behind Android's declarations. Below a root prefix they come from the socket
// that the virtual co-processor serves there; otherwise from the kernel's netlink multicast.
#include <cutils/uevent.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/linux/root.h"

namespace {

constexpr const char* kSocketPath = "/run/marlo/uevent";

int open_simulated_socket() {
    const std::string path = os::under_root(kSocketPath);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        const int failure = errno;
        ::close(fd);
        errno = failure;
        return -1;
    }
    return fd;
}

int open_kernel_socket(int buffer_size, bool pass_credentials) {
    const int fd = ::socket(PF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    if (fd < 0) {
        return -1;
    }
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = 0xffffffff;
    // The forced size needs a privilege; without it the kernel's limit for the plain one holds.
    if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &buffer_size, sizeof(buffer_size)) != 0) {
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &buffer_size, sizeof(buffer_size));
    }
    const int on = pass_credentials ? 1 : 0;
    if (::setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) != 0 ||
        ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        const int failure = errno;
        ::close(fd);
        errno = failure;
        return -1;
    }
    return fd;
}

// True when the message came from the kernel itself, as one of its multicasts.
bool is_from_kernel(const msghdr& message, const sockaddr_nl& sender) {
    if (sender.nl_groups == 0 || sender.nl_pid != 0) {
        return false;
    }
    const cmsghdr* control = CMSG_FIRSTHDR(&message);
    if (control == nullptr || control->cmsg_type != SCM_CREDENTIALS) {
        return false;
    }
    ucred credentials{};
    std::memcpy(&credentials, CMSG_DATA(control), sizeof(credentials));
    return credentials.uid == 0;
}

}  // namespace

int uevent_open_socket(int buf_sz, bool passcred) {
    return os::root_prefix().empty() ? open_kernel_socket(buf_sz, passcred)
                                     : open_simulated_socket();
}

ssize_t uevent_kernel_multicast_recv(int socket, void* buffer, size_t length) {
    if (!os::root_prefix().empty()) {
        return TEMP_FAILURE_RETRY(::recv(socket, buffer, length, 0));
    }
    iovec space{buffer, length};
    sockaddr_nl sender{};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof(sender);
    message.msg_iov = &space;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    const ssize_t count = TEMP_FAILURE_RETRY(::recvmsg(socket, &message, 0));
    if (count > 0 && !is_from_kernel(message, sender)) {
        std::memset(buffer, 0, length);
        errno = EIO;
        return -1;
    }
    return count;
}
