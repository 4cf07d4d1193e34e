// SPDX-License-Identifier: Apache-2.0
#include <thread>

#include "tests/fwupdater/recording.h"

// For ThreadSanitizer and AddressSanitizer: the images of a session disappear, and the next
// session is loaded, while the reader thread serves fragments and both threads send.
TEST_F(UpdaterTest, ImagesMayGoWhileTheyAreServed) {
    table(
        "<Partition><img_id>5</img_id><Image_Path>five.bin</Image_Path><size>1</size>"
        "<HostSpecificInfo><PartType>1</PartType></HostSpecificInfo></Partition>");
    image("five.bin", "FFFF");
    start();
    std::thread reader([this] {
        for (int round = 0; round < 300; ++round) {
            receive(5, {5, 0, 4});
            receive(14, {0, 0});
        }
    });
    for (int round = 0; round < 50; ++round) {
        updater_.truncateFwResources();
        updater_.startMarloDownloaderWithCallback(&recording_);
        updater_.eraseAllRAWPartitionAndContinueDownload();
    }
    reader.join();
    // What comes out depends on who is faster.
    const Lines lines = recording_.take();
    EXPECT_GT(lines.size(), 900U);
    for (const std::string& line : lines) {
        EXPECT_THAT(line, testing::AnyOf(testing::Not(testing::StartsWith("send 6")),
                                         "send 6: 5 0 4", "send 6: 5 0 4 46 46 46 46"));
    }
}

// The same for misc data: its resources are dropped and loaded again while they are sent.
TEST_F(UpdaterTest, MiscDataMayGoWhileItIsSent) {
    scripted::platform().file("/vendor/bt_firmware/image/mrnv20.bin", "settings");
    script_.text = misc_packet_text;
    updater_.startMarloSHMUpdater(nullptr);
    std::thread sender([this] {
        for (int round = 0; round < 300; ++round) {
            updater_.marloMiscDataUpdateReq();
        }
    });
    for (int round = 0; round < 300; ++round) {
        updater_.truncateMiscFwResources();
        updater_.loadAndSaveMiscFw();
    }
    sender.join();
    recording_.take();
    updater_.marloMiscDataUpdateReq();
    expect({"send 0: 1 8 0", "send 2: 1 8 1 settings", "send 4: 1 4 0 e545a0c5", "send 5: 0 0 0"});
}
