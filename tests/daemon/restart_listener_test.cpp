// SPDX-License-Identifier: Apache-2.0
// The restart listener in front of a scripted uevent socket.
#include "tests/daemon/daemon_fixture.h"

using namespace std::string_literals;
using scripted::platform;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

const std::string kName = "change@/devices/virtual/marlo_com/marlo_com_dev\0"s;
const std::vector<std::string> kDown = {"set vendor.marlo.boot_complete=0",
                                        "I on_aon_down: called\n", "D marlo is power down"};
// No boot has been completed, so nothing is known of the co-processor.
const std::vector<std::string> kUp = {"D marlo is powered up", "set vendor.marlo.boot_complete=1",
                                      "I on_aon_up: called\n"};

// A message of exactly `size` bytes that ends with `end`.
std::string padded(size_t size, const std::string& end) {
    std::string message = kName + "FILL=";
    message.resize(size - end.size() - 1, 'x');
    return message + "\0"s + end;
}

class RestartListener : public DaemonTest {
  protected:
    RestartListener() { daemon_->registerMarloSSREvent(); }

    // What the listener does with one message.
    std::vector<std::string> reaction(const std::string& message,
                                      std::optional<ssize_t> result = {}) {
        platform().wait_until_listening();
        const size_t before = course().size();
        platform().uevent(message, result);
        platform().wait_until_listening();
        std::vector<std::string> lines = course();
        lines.erase(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(before));
        return lines;
    }
};

TEST_F(RestartListener, PropertyComesBeforeTheDaemonsReaction) {
    EXPECT_THAT(reaction(kName + "MARLO_EVENT=1\0"s), ElementsAreArray(kDown));
    EXPECT_THAT(reaction(kName + "MARLO_EVENT=4\0"s), ElementsAreArray(kUp));
}

TEST_F(RestartListener, OtherValuesAreNotActedUpon) {
    for (const char* value : {"0", "2", "3", "5", "-1", "", "x1", "99999999999", "4294967297"}) {
        EXPECT_THAT(reaction(kName + "MARLO_EVENT=" + value + "\0"s), IsEmpty()) << value;
    }
    // What follows the number does not count.
    EXPECT_THAT(reaction(kName + "MARLO_EVENT= 1x\0"s), ElementsAreArray(kDown));
}

TEST_F(RestartListener, MessagesOfOthersAreIgnored) {
    EXPECT_THAT(reaction("change@/devices/other\0MARLO_EVENT=1\0"s), IsEmpty());
    EXPECT_THAT(reaction("\0marlo_com_dev\0MARLO_EVENT=1\0"s), IsEmpty());
    // The name may stand anywhere, even where the texts have ended.
    EXPECT_THAT(reaction("MARLO_EVENT=1\0\0marlo_com_dev"s), ElementsAreArray(kDown));
    EXPECT_THAT(reaction(kName + "\0MARLO_EVENT=1\0"s), IsEmpty());
    EXPECT_THAT(reaction(kName + "twelve chars1 MARLO_EVENT=1\0marlo_event=1\0MARLO_EVENT\0"s),
                IsEmpty());
}

TEST_F(RestartListener, EveryEventOfAMessageCounts) {
    std::vector<std::string> both = kDown;
    both.insert(both.end(), kUp.begin(), kUp.end());
    EXPECT_THAT(reaction(kName + "MARLO_EVENT=1\0MARLO_EVENT=2\0MARLO_EVENT=4\0"s),
                ElementsAreArray(both));
}

TEST_F(RestartListener, MessagesOfEverySizeUpToTheBuffersEndAreRead) {
    EXPECT_THAT(reaction(padded(1023, "MARLO_EVENT=1\0"s)), ElementsAreArray(kDown));
    EXPECT_THAT(reaction(padded(1024, "MARLO_EVENT=1\0"s)), ElementsAreArray(kDown));
    // Without a terminating NUL, up to the last byte.
    EXPECT_THAT(reaction(padded(1024, "MARLO_EVENT=4"s)), ElementsAreArray(kUp));
    // Shorter ones: nothing is left over from the message before.
    EXPECT_THAT(reaction("m"s), IsEmpty());
    EXPECT_THAT(reaction("MARLO_EVENT=1;marlo_com_dev"s), ElementsAreArray(kDown));
    // Cut by the socket: the event is lost.
    EXPECT_THAT(reaction(padded(1038, "MARLO_EVENT=1"s)), IsEmpty());
    EXPECT_THAT(reaction(padded(1024, "MARLO_EVENT=1"s), 1025),
                ElementsAre("E Message length is not correct \n"));
}

TEST_F(RestartListener, EndsWithTheSocket) {
    platform().end_uevents();
    for (const ssize_t result : {0, -1}) {
        scripted::reset_platform();
        SSRHandler listener(daemon_.get());
        EXPECT_THAT(reaction(kName + "MARLO_EVENT=1\0"s, result), IsEmpty());
        EXPECT_EQ(platform().open_descriptors(), 0);
    }
}

TEST_F(RestartListener, WithoutASocketEndsAtOnce) {
    platform().end_uevents();
    scripted::reset_platform();
    platform().fail_uevent_socket(EPERM);
    SSRHandler listener(daemon_.get());
    platform().end_uevents();
    EXPECT_TRUE(logged("D marloSSREventListener: called\n"));
    EXPECT_TRUE(logged("E open socket failed"));
}

TEST_F(RestartListener, WithoutAThreadNobodyListens) {
    platform().end_uevents();
    scripted::reset_platform();
    platform().fail_next_thread(EAGAIN);
    const SSRHandler listener(daemon_.get());
    EXPECT_EQ(platform().count("E restart listener cannot be started: "), 1u);
    EXPECT_FALSE(logged(kListenerCalled));
}

TEST_F(RestartListener, StoresEveryEventAndNeedsNoDaemon) {
    platform().end_uevents();
    scripted::reset_platform();
    SSRHandler listener(nullptr);
    reaction(padded(1024, "MARLO_EVENT=1"s), 1025);
    EXPECT_EQ(listener.last_event(), 0);
    EXPECT_THAT(reaction(kName + "MARLO_EVENT=1\0"s),
                ElementsAre("set vendor.marlo.boot_complete=0", "D marlo is power down"));
    EXPECT_THAT(reaction(kName + "MARLO_EVENT=4\0"s),
                ElementsAre("D marlo is powered up", "set vendor.marlo.boot_complete=1"));
    reaction(kName + "MARLO_EVENT=7\0"s);
    EXPECT_EQ(listener.last_event(), 7);
    EXPECT_THAT(platform().log_tags(), ElementsAre("MarloDaemon"));
    platform().end_uevents();
}

TEST_F(RestartListener, IsRegisteredOnce) {
    platform().wait_until_listening();
    daemon_->registerMarloSSREvent();
    EXPECT_EQ(platform().count("E registerMarloSSREvent: called\n"), 2u);
    announce(1);
    announce(4);
    EXPECT_EQ(platform().count("marloSSREventListener: called"), 1u);
}

}  // namespace
