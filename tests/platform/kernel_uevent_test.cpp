// SPDX-License-Identifier: Apache-2.0
// Uevents without a root prefix: from the kernel itself, over netlink.
#include <cutils/uevent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace {

// Writing to this file makes the kernel announce the device again.
constexpr const char* kTrigger = "/sys/class/mem/null/uevent";
constexpr const char* kDevice = "/devices/virtual/mem/null";

class KernelUevents : public testing::Test {
  protected:
    void SetUp() override {
        socket_ = uevent_open_socket(65536, true);
        if (socket_ < 0) {
            GTEST_SKIP() << "the kernel gives no uevent socket: " << strerror(errno);
        }
    }
    ~KernelUevents() override {
        if (socket_ >= 0) {
            close(socket_);
        }
    }

    int socket_ = -1;
};

TEST_F(KernelUevents, AreWhatTheKernelAnnounces) {
    const int trigger = open(kTrigger, O_WRONLY | O_CLOEXEC);
    if (trigger < 0) {
        GTEST_SKIP() << kTrigger << ": " << strerror(errno);
    }
    ASSERT_EQ(write(trigger, "change", 6), 6);
    close(trigger);
    // Other devices may have something to say as well.
    std::string message;
    while (message.find(kDevice) == std::string::npos) {
        pollfd entry = {socket_, POLLIN, 0};
        if (poll(&entry, 1, 2000) == 0) {
            GTEST_SKIP() << "the kernel's uevents do not come through to this container";
        }
        char buffer[1024];
        const ssize_t length = uevent_kernel_multicast_recv(socket_, buffer, sizeof(buffer));
        ASSERT_GT(length, 0) << strerror(errno);
        message.assign(buffer, static_cast<size_t>(length));
    }
    EXPECT_EQ(message.substr(0, message.find('\0')), std::string("change@") + kDevice);
    EXPECT_NE(message.find(std::string("\0SUBSYSTEM=mem\0", 15)), std::string::npos);
}

TEST_F(KernelUevents, OfAnotherProcessAreRefused) {
    sockaddr_nl address{};
    socklen_t size = sizeof(address);
    ASSERT_EQ(getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    address.nl_groups = 0;
    const int sender = socket(PF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    const std::string forged("change@/marlo_com_dev\0MARLO_EVENT=1\0", 36);
    const ssize_t sent = sendto(sender, forged.data(), forged.size(), 0,
                                reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    close(sender);
    if (sent < 0) {
        GTEST_SKIP() << "the kernel itself refuses it: " << strerror(errno);
    }
    // A real one may have come before it.
    ssize_t length = 0;
    char buffer[1024];
    do {
        length = uevent_kernel_multicast_recv(socket_, buffer, sizeof(buffer));
    } while (length > 0);
    EXPECT_EQ(length, -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(buffer[0], '\0');
}

}  // namespace
