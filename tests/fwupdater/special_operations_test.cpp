// SPDX-License-Identifier: Apache-2.0
#include "platform/os.h"
#include "tests/fwupdater/recording.h"

namespace {

const std::string kErasing = "started ### Erasing Marlo Flash Content. ###";
const std::string kAsking = "started ### Getting Marlo DFU State. ###";
const std::string kAnswered = "info Received DFU_SPCL_OPERATION_RESP response code: ";

std::string partition(const std::string& name, int offset, int size, int type) {
    return "<Partition><Partition_Name>" + name + "</Partition_Name><Offset>" +
           std::to_string(offset) + "</Offset><size>" + std::to_string(size) +
           "</size><HostSpecificInfo><PartType>" + std::to_string(type) +
           "</PartType></HostSpecificInfo></Partition>";
}

class SpecialOperations : public UpdaterTest {
  protected:
    void begin() {
        table(partition("boot", 4096, 8192, 1) + partition("empty", 1, 0, 1) +
              partition("kept", 2, 3, 0) + partition("tail", -4096, 4096, 2));
        image("./flash.bin", "flash");
        image("./partition_1.bin", "ABCDEFGH");
        start();
    }
    // A state answer with code 0, and what is done after it was reported.
    void expect_after(const std::vector<uint32_t>& words, Lines lines) {
        std::vector<uint32_t> all = {1, 0, 0xEEEE};
        all.insert(all.end(), words.begin(), words.end());
        receive(14, all);
        lines.insert(lines.begin(), kAnswered + "0");
        expect(lines);
    }
};

}  // namespace

TEST_F(SpecialOperations, EachErasablePartitionOnceThenTheState) {
    begin();
    updater_.eraseAllRAWPartitionAndContinueDownload();
    expect({"started Erase Requested for partition: boot", "send 13: 0 4096 8192", kErasing,
            "info Going for erase from offset: 4096 to Length: 8192..."});
    receive(14, {0, 0});
    expect({kAnswered + "0", "info ### Marlo Flash Erase finished. ###",
            "started Erase Requested for partition: tail", "send 13: 0 4294963200 4096", kErasing,
            "info Going for erase from offset: 4294963200 to Length: 4096..."});
    receive(14, {0, 9});
    expect({kAnswered + "9", "info ### Marlo Flash Erase Failed. ###", "send 13: 1 0 0", kAsking});
    expect_after({0}, {"send 1: 1 0 0 49 4d 47 20 55 50 44 54", "property 0",
                       "started ### Starting Marlo Firmware Update. ###",
                       "info Current Marlo DFU state = INIT "});
}

TEST_F(SpecialOperations, AnswerThatOvertakesItsRequestErasesNothingTwice) {
    begin();
    recording_.on_report = [this](const std::string& line) {
        if (line == kErasing) {
            receive(14, {0, 0});
        }
    };
    updater_.eraseAllRAWPartitionAndContinueDownload();
    Lines sent = recording_.take();
    std::erase_if(sent, [](const std::string& line) { return !line.starts_with("send"); });
    EXPECT_EQ(sent,
              (Lines{"send 13: 0 4096 8192", "send 13: 0 4294963200 4096", "send 13: 1 0 0"}));
}

TEST_F(SpecialOperations, EraseAloneEndsWithoutADownload) {
    begin();
    updater_.eraseAllRAWPartition();
    receive(14, {0, 0});
    receive(14, {0, 0});
    EXPECT_EQ(recording_.take().back(), "erase-done ### Marlo Flash Erase finished. ###");
}

TEST_F(SpecialOperations, ReportedStateIsAnsweredFirstThenShown) {
    begin();
    updater_.getCurrentDFUStateAndContinueDownload();
    expect({"send 13: 1 0 0", kAsking});
    const std::string current = "info Current Marlo DFU state = ";
    expect_after({1, 2, 5, 6}, {"send 4: 2 8 0", "info Updating Image ID: 2 size:8",
                                current + "INFO_REQ  Image ID: 2"});
    expect_after({1, 0},
                 {"send 4: 0 0 0", "info Updating Image ID: 0 size:0", current + "INFO_REQ "});
    expect_after({2, 2, 4, 2},
                 {"info Image ID: 2 flash write 50% Completed...", "send 6: 2 4 2 45 46",
                  current + "OFFSET_REQ  Image ID: 2 offset: 4 fragment_len: 2"});
    expect_after({4, 2, 4, 2}, {current + "CANCEL_UPDATE_REQ "});
    expect_after({7, 2}, {current + " "});
    expect_after({3},
                 {"send 12: 0 0 0", "property 1", "success ### Marlo Firmware Update finished. ###",
                  current + "SESSION_END_REQ "});
}

TEST_F(SpecialOperations, BareQueryHandsTheStateOver) {
    begin();
    updater_.sendGetDFUStateReq();
    expect({"send 13: 1 0 0", kAsking});
    expect_after({2, 2, 4, 0},
                 {"info Current Marlo DFU state = OFFSET_REQ  Image ID: 2 offset: 4", "state 2"});
}

TEST_F(SpecialOperations, FailedQueryAndOtherOperationsStopThere) {
    begin();
    receive(14, {1, 3, 0, 0});
    receive(14, {2, 0, 0, 0});
    expect({kAnswered + "3", "error Get Marlo DFU State Failed.", kAnswered + "0"});
}

TEST_F(SpecialOperations, ResumingMeasuresTimeAnew) {
    begin();
    updater_.eraseAllRAWPartitionAndContinueDownload();
    os::sleep(100);
    transport_->fail(GLINK_SSR);
    os::sleep(7);
    EXPECT_EQ(updater_.timeTaken(), 7.0);
    recording_.take();
}
