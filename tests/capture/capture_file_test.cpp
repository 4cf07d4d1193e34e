// SPDX-License-Identifier: Apache-2.0
#include "sim/capture/capture_file.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

#include "sim/coprocessor.h"
#include "sim/recorder.h"
#include "tests/sim_front/temporary_directory.h"

namespace sim {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct NoObserver : Observer {
    void event(const Event&) override {}
};

struct NoMemory : UserMemory {
    bool read(uint32_t, std::span<uint8_t>) override { return false; }
    bool write(uint32_t, std::span<const uint8_t>) override { return false; }
};

FirmwareBundle firmware() {
    FirmwareBundle bundle;
    bundle.images = {{3, "two\nlines", Bytes(5), true, 0}};
    bundle.erase_ranges = {{"APPS", 4096, 512}};
    return bundle;
}

std::string contents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(CaptureFileTest, IsCompleteAtAnyTimeAndNamesTheFirmwareFirst) {
    const TemporaryDirectory directory;
    const std::filesystem::path path = directory.path() / "x.pcapng";
    NoObserver observer;
    NoMemory memory;
    Coprocessor model({}, firmware(), observer);
    CaptureFile file(path, "update");
    file.name_firmware(firmware());
    Device& device = file.around(model);
    device.ioctl(0x80205604, {}, memory);
    const std::string first = contents(path);
    EXPECT_THAT(first, HasSubstr("image 3 5 two lines\nrange 4096 512 APPS\n"));
    device.ioctl(0x80205603, {}, memory);
    const std::string both = contents(path);
    EXPECT_GT(both.size(), first.size());
    EXPECT_THAT(both, StartsWith(first));
    EXPECT_EQ(both.find("image 3"), both.rfind("image 3"));
    file.close();
    EXPECT_EQ(contents(path), both);
}

TEST(CaptureFileTest, FileThatCannotBeWrittenIsNamedWithTheReason) {
    for (const auto& [path, why] : {std::pair{"/dev/full", "No space left on device"},
                                    std::pair{"/nowhere/x.pcapng", "No such file or directory"}}) {
        try {
            CaptureFile file(path, "update");
            file.close();
            ADD_FAILURE() << path;
        } catch (const RecordError& error) {
            EXPECT_EQ(error.what(), std::string("cannot write the capture ") + path + ": " + why +
                                        "; give --capture another file");
        }
    }
}

}  // namespace
}  // namespace sim
