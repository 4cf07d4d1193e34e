// SPDX-License-Identifier: Apache-2.0
#include "sim/uevent_socket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "tests/sim_front/temporary_directory.h"

namespace sim {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;

class UeventSocketTest : public testing::Test {
  protected:
    UeventSocketTest() { std::filesystem::create_directories(root_.path() / "run/marlo"); }

    class Client {
      public:
        explicit Client(const std::filesystem::path& root)
            : socket_(socket(AF_UNIX, SOCK_SEQPACKET, 0)) {
            const std::string path = root / "run/marlo/uevent";
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            std::memcpy(address.sun_path, path.c_str(), path.size());
            EXPECT_EQ(connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address),
                      0);
        }
        ~Client() { close(socket_); }
        Client(const Client&) = delete;
        Client& operator=(const Client&) = delete;

        std::vector<std::string> received() const {
            std::vector<std::string> messages;
            std::array<char, 1024> buffer;
            for (;;) {
                const ssize_t length = recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
                if (length <= 0) return messages;
                messages.emplace_back(buffer.data(), static_cast<size_t>(length));
            }
        }

      private:
        int socket_;
    };

    TemporaryDirectory root_;
};

TEST_F(UeventSocketTest, AnnouncesInTheFormOfTheKernelToWhoeverIsConnected) {
    UeventSocket uevents(root_.path());
    const Client early(root_.path());
    uevents.announce(1);
    const Client late(root_.path());
    { const Client gone(root_.path()); }
    uevents.announce(4);
    const std::vector<std::string> messages = early.received();
    ASSERT_EQ(messages.size(), 6u);
    EXPECT_EQ(messages[1],
              "change@/devices/virtual/marlo_com/marlo_com_dev\0ACTION=change\0"
              "DEVPATH=/devices/virtual/marlo_com/marlo_com_dev\0SUBSYSTEM=marlo_com\0"
              "MARLO_EVENT=1\0SEQNUM=4713\0"s);
    EXPECT_THAT(messages[2], testing::Not(HasSubstr("marlo_com_dev")));
    EXPECT_THAT(messages[2], HasSubstr("MARLO_EVENT=4"));
    EXPECT_THAT(messages[4], HasSubstr("marlo_com\0MARLO_EVENT=4\0"s));
    EXPECT_THAT(late.received(), ElementsAre(messages[3], messages[4], messages[5]));
}

TEST_F(UeventSocketTest, WhoDoesNotReadIsNotWaitedFor) {
    UeventSocket uevents(root_.path());
    const Client lazy(root_.path());
    for (int i = 0; i < 10000; ++i) uevents.announce(1);
    EXPECT_LT(lazy.received().size(), 30000u);
    uevents.announce(4);
    EXPECT_EQ(lazy.received().size(), 3u);
}

TEST_F(UeventSocketTest, PathThatIsTooLongIsNamed) {
    const std::filesystem::path root = root_.path() / std::string(100, 'x');
    try {
        const UeventSocket uevents(root);
        ADD_FAILURE();
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("x/run/marlo/uevent: a socket's path has 107"));
        EXPECT_THAT(error.what(), HasSubstr("shorter --root"));
    }
}

}  // namespace
}  // namespace sim
