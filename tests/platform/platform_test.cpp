// SPDX-License-Identifier: Apache-2.0
#include <cutils/properties.h>
#include <cutils/uevent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utils/SystemClock.h>

#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "platform/linux/root.h"
#include "platform/os.h"
#include "tests/platform/empty_directory.h"

namespace {

namespace fs = std::filesystem;

// The prefix is read once, so all tests of this program share one root.
class Root : public testing::Environment {
  public:
    void SetUp() override {
        char name[] = "/tmp/marlo-platform-XXXXXX";
        path = mkdtemp(name);
        // Trailing slashes are no part of the prefix.
        setenv("MARLO_ROOT", (path.string() + "//").c_str(), 1);
    }
    void TearDown() override { fs::remove_all(path); }

    static inline fs::path path;
};

const auto* const kRoot = testing::AddGlobalTestEnvironment(new Root);

}  // namespace

std::string empty_directory() {
    fs::remove_all(Root::path / "data/files");
    fs::create_directories(Root::path / "data/files");
    return "/data/files";
}

namespace {

std::string contents(const fs::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// What the kernel tells of the memory around `place`: " rd wr hg" and so on.
std::string flags_of_mapping(const void* place) {
    constexpr std::string_view kFlags = "VmFlags:";
    const auto address = reinterpret_cast<uintptr_t>(place);
    std::ifstream file("/proc/self/smaps");
    bool is_inside = false;
    for (std::string line; std::getline(file, line);) {
        uintptr_t begin = 0;
        uintptr_t end = 0;
        if (sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " ", &begin, &end) == 2) {
            is_inside = begin <= address && address < end;
        } else if (is_inside && line.starts_with(kFlags)) {
            return line.substr(kFlags.size());
        }
    }
    return "";
}

bool keeps_large_pages_in_mind() {
    constexpr size_t kSize = 1 << 20;
    void* const memory =
        mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    madvise(memory, kSize, MADV_HUGEPAGE);
    const bool is_kept = flags_of_mapping(memory).find(" hg") != std::string::npos;
    munmap(memory, kSize);
    return is_kept;
}

std::string property(const char* name, const char* default_value = nullptr) {
    char value[PROPERTY_VALUE_MAX];
    memset(value, 'x', sizeof(value));
    const int length = property_get(name, value, default_value);
    EXPECT_EQ(static_cast<size_t>(length), strlen(value));
    return value;
}

TEST(Properties, AreOneFileEachAndPersistentOnesApart) {
    EXPECT_EQ(property_set("vendor.marlo_reset", "1"), 0);
    EXPECT_EQ(property_set("persist.vendor.x", "yes"), 0);
    EXPECT_EQ(contents(Root::path / "run/marlo/properties/vendor.marlo_reset"), "1");
    EXPECT_EQ(contents(Root::path / "var/lib/marlo/properties/persist.vendor.x"), "yes");
    EXPECT_EQ(property("vendor.marlo_reset"), "1");
    EXPECT_EQ(property("persist.vendor.x"), "yes");
    // Nothing temporary is left behind.
    const auto entries = fs::directory_iterator(Root::path / "run/marlo/properties");
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST(Properties, AreTheOwnersAloneWhateverTheMask) {
    fs::remove_all(Root::path / "run");
    umask(0777);
    os::initialize();
    EXPECT_EQ(property_set("vendor.made", "1"), 0);
    fs::path path = Root::path / "run/marlo/properties/vendor.made";
    EXPECT_EQ(fs::status(path).permissions(), fs::perms{0600});
    while ((path = path.parent_path()) != Root::path) {
        EXPECT_EQ(fs::status(path).permissions(), fs::perms{0700}) << path;
    }
}

TEST(Properties, ThatCannotBeWrittenStayAndLeaveNothingBehind) {
    const fs::path directory = Root::path / "run/marlo/properties";
    fs::create_directories(directory / "vendor.directory");
    const fs::path temporary = directory / (".vendor.linked." + std::to_string(gettid()));
    fs::create_symlink(Root::path / "outside", temporary);
    for (const char* name : {"vendor.directory", "vendor.linked"}) {
        EXPECT_EQ(property_set(name, "1"), -1) << name;
        EXPECT_EQ(property(name, "0"), "0") << name;
    }
    EXPECT_FALSE(fs::exists(Root::path / "outside"));
    EXPECT_EQ(property_set("vendor.linked", nullptr), 0);  // the link is gone; as good as ""
    EXPECT_EQ(property("vendor.linked", "0"), "0");
    EXPECT_EQ(property_set(nullptr, "1"), -1);
    EXPECT_EQ(property(nullptr, "0"), "0");
    fs::remove_all(directory);
    std::ofstream(directory) << "a file";
    EXPECT_EQ(property_set("vendor.x", "1"), -1);
    EXPECT_EQ(errno, ENOTDIR);
    fs::remove(directory);
}

TEST(Properties, CanBeSetWithEchoAndFallBackToTheDefault) {
    EXPECT_EQ(property("vendor.unset"), "");
    EXPECT_EQ(property("vendor.unset", "0"), "0");
    property_set("vendor.echoed", "");
    EXPECT_EQ(property("vendor.echoed", "0"), "0");
    std::ofstream(Root::path / "run/marlo/properties/vendor.echoed") << "1\n";
    EXPECT_EQ(property("vendor.echoed", "0"), "1");
}

TEST(Properties, AreBoundedAndStayInTheirDirectory) {
    const std::string longest(PROPERTY_VALUE_MAX - 1, 'v');
    EXPECT_EQ(property_set("vendor.long", longest.c_str()), 0);
    EXPECT_EQ(property_set("vendor.long", (longest + "v").c_str()), -1);
    EXPECT_EQ(property("vendor.long"), longest);
    std::ofstream(Root::path / "run/marlo/properties/vendor.long") << longest << longest;
    EXPECT_EQ(property("vendor.long"), longest);
    EXPECT_EQ(property("vendor.unset", (longest + "v").c_str()), longest);
    for (const char* name : {"", "../escaped", "a/b", ".hidden"}) {
        EXPECT_EQ(property_set(name, "1"), -1) << name;
        EXPECT_EQ(property(name, "0"), "0") << name;
    }
}

TEST(Properties, ReadersSeeOneOfTheValuesThatWritersSet) {
    const std::string ones(50, '1');
    const std::string twos(60, '2');
    property_set("vendor.shared", ones.c_str());
    const auto writer = [](const std::string& value) {
        for (int round = 0; round < 100; ++round) {
            ASSERT_EQ(property_set("vendor.shared", value.c_str()), 0);
        }
    };
    std::thread first(writer, ones);
    std::thread second(writer, twos);
    for (int round = 0; round < 200; ++round) {
        EXPECT_THAT(property("vendor.shared"), testing::AnyOf(ones, twos));
    }
    first.join();
    second.join();
}

TEST(Calls, AbsolutePathsAreLookedUpBelowTheRoot) {
    fs::create_directories(Root::path / "sys/class");
    std::ofstream(Root::path / "sys/class/name") << "text";
    const int fd = os::open("/sys/class/name", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    char text[8] = {};
    EXPECT_EQ(os::read(fd, text, sizeof(text)), 4);
    os::close(fd);
    DIR* directory = os::opendir("/sys/class/");
    ASSERT_NE(directory, nullptr);
    os::closedir(directory);
    EXPECT_EQ(os::under_root("relative"), "relative");
    EXPECT_EQ(os::open("", O_RDONLY), -1);
}

TEST(Calls, ReachTheKernel) {
    int ends[2];
    ASSERT_EQ(os::pipe(ends), 0);
    EXPECT_EQ(fcntl(ends[1], F_GETFD), FD_CLOEXEC);
    pollfd entry = {ends[0], POLLIN, 0};
    EXPECT_EQ(os::poll(&entry, 1, 0), 0);
    std::thread writer = os::start_thread([&ends] { os::write(ends[1], "four", 4); });
    os::join_thread(writer);
    EXPECT_EQ(os::poll(&entry, 1, 0), 1);
    int readable = 0;
    EXPECT_EQ(os::ioctl(ends[0], FIONREAD, &readable), 0);
    EXPECT_EQ(readable, 4);
    os::close(ends[0]);
    os::close(ends[1]);
    EXPECT_GT(os::time(), 1'700'000'000);
    EXPECT_EQ(os::sleep(0), 0u);
    EXPECT_EQ(os::usleep(0), 0);
    fs::create_directories(Root::path / "listed/one");
    DIR* directory = os::opendir("/listed");
    std::set<std::string> names;
    while (const dirent* found = os::readdir(directory)) {
        names.insert(found->d_name);
    }
    EXPECT_THAT(names, testing::ElementsAre(".", "..", "one"));
    os::closedir(directory);
}

TEST(Calls, MemoryBelowFourGibibytesIsThereAndZeroed) {
    void* first = os::map_below_4gib(308);
    void* second = os::map_below_4gib(308);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_LE(reinterpret_cast<uintptr_t>(second) + 308, uintptr_t{0xFFFFFFFF});
    EXPECT_EQ(*static_cast<char*>(second), 0);
    os::unmap(first, 308);
    os::unmap(second, 308);
}

TEST(Calls, LargePagesAreAskedForInWholePagesOnly) {
    if (!keeps_large_pages_in_mind()) {
        GTEST_SKIP() << "neither the kernel nor an emulator tells what is to be of large pages";
    }
    constexpr size_t kPages = 16 * 4096;
    std::vector<char> memory(4 * kPages, 'm');
    char* const inside = memory.data() + kPages;
    os::use_large_pages(nullptr, 0);
    os::use_large_pages(inside + 1, 4095);
    EXPECT_EQ(flags_of_mapping(inside).find(" hg"), std::string::npos);
    os::use_large_pages(inside + 1, kPages);
    EXPECT_NE(flags_of_mapping(inside + kPages / 2).find(" hg"), std::string::npos);
    EXPECT_EQ(flags_of_mapping(inside + 2 * kPages).find(" hg"), std::string::npos);
    EXPECT_EQ(memory, std::vector<char>(4 * kPages, 'm'));
}

TEST(Calls, BootClockMovesForward) {
    const int64_t before = android::elapsedRealtimeNano();
    EXPECT_GT(before, 0);
    EXPECT_GE(android::elapsedRealtimeNano(), before);
}

TEST(Uevents, ComeFromTheSocketBelowTheRootOneMessageEach) {
    const fs::path path = Root::path / "run/marlo/uevent";
    fs::create_directories(path.parent_path());
    EXPECT_EQ(uevent_open_socket(65536, true), -1);
    EXPECT_EQ(errno, ENOENT);

    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int server = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(server, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(server, 1), 0);
    const int listener = uevent_open_socket(65536, true);
    ASSERT_GE(listener, 0);
    const int sender = accept(server, nullptr, nullptr);
    ASSERT_EQ(send(sender, "one", 3, 0), 3);
    ASSERT_EQ(send(sender, "three", 5, 0), 5);
    close(sender);
    char buffer[16] = {};
    EXPECT_EQ(uevent_kernel_multicast_recv(listener, buffer, sizeof(buffer)), 3);
    EXPECT_EQ(uevent_kernel_multicast_recv(listener, buffer, sizeof(buffer)), 5);
    EXPECT_STREQ(buffer, "three");
    EXPECT_EQ(uevent_kernel_multicast_recv(listener, buffer, sizeof(buffer)), 0);
    close(listener);
    close(server);
}

}  // namespace
