// SPDX-License-Identifier: Apache-2.0
#include "sim/capture/capturing_device.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "sim/packet_words.h"

namespace sim {
namespace {

using std::chrono_literals::operator""ns;
using testing::ElementsAre;

// A device that does as the test says.
class ToldDevice : public Device {
  public:
    void set_time(Time) override { hung_up_ |= hangs_up_; }
    std::optional<Time> next_deadline() const override { return {}; }
    int open_control() override { return control_; }
    int ioctl(uint32_t, std::span<uint8_t> block, UserMemory& memory) override {
        std::array<uint8_t, 2> word{};
        memory.read(word_at(block, 0), word);
        memory.write(0xffffffff, word);
        hung_up_ = hangs_up_;
        return -EFAULT;
    }
    int open_channel(Channel) override { return opening_; }
    void close_channel(Channel) override { hung_up_ = false; }
    int receive(Channel, std::span<const uint8_t> packet) override {
        return hung_up_ ? -EPIPE : static_cast<int>(packet.size());
    }
    bool readable(Channel) const override { return true; }
    bool hung_up(Channel channel) const override { return channel == Channel::kRma && hung_up_; }
    Bytes take_packet(Channel) override { return {7, 8}; }
    std::optional<int> read_error(Channel) override { return read_error_; }
    std::string remoteproc_state() const override { return ""; }
    void write_wake_lock(std::string_view) override {}
    void write_wake_unlock(std::string_view) override {}

    int control_ = 0;
    int opening_ = 0;
    bool hangs_up_ = false;
    bool hung_up_ = false;
    std::optional<int> read_error_;
};

// Only address 16 is the daemon's.
class SmallMemory : public UserMemory {
  public:
    bool read(uint32_t address, std::span<uint8_t> into) override {
        into[0] = 0xaa;
        into[1] = 0xbb;
        return address == 16;
    }
    bool write(uint32_t address, std::span<const uint8_t>) override { return address == 16; }
};

class CapturingDeviceTest : public testing::Test, private FrameObserver {
  protected:
    // Each frame: time, then its bytes in hexadecimal digits, those behind the version.
    std::vector<std::string> frames() { return std::exchange(frames_, {}); }

    ToldDevice told_;
    CapturingDevice device_{told_, static_cast<FrameObserver&>(*this)};

  private:
    void frame(const CapturedFrame& frame) override {
        std::string text = std::to_string(frame.time.count());
        const Bytes bytes = encode(frame);
        EXPECT_EQ(bytes.at(0), 1);
        for (size_t at = 1; at < bytes.size(); ++at) {
            char digits[4];
            std::snprintf(digits, sizeof digits, "%02x", bytes[at]);
            text += (at <= 4 || at % 4 == 0 ? " " : "") + std::string(digits);
        }
        frames_.push_back(text);
    }

    std::vector<std::string> frames_;
};

TEST_F(CapturingDeviceTest, PacketsOfBothDirectionsHaveTheirTimeAndResult) {
    device_.set_time(5ns);
    EXPECT_EQ(device_.receive(Channel::kDfu, Bytes{1, 2, 3}), 3);
    device_.set_time(9ns);
    device_.set_time(8ns);  // none goes backwards
    EXPECT_EQ(device_.take_packet(Channel::kMiscData), (Bytes{7, 8}));
    EXPECT_THAT(frames(), ElementsAre("5 00 01 02 03000000 010203", "9 00 02 01 00000000 0708"));
}

TEST_F(CapturingDeviceTest, CommandHasItsBlockAndTheMemoryThatItReached) {
    Bytes block(8);
    put_word(block, 0, 16);
    SmallMemory memory;
    EXPECT_EQ(device_.ioctl(0x80205603, block, memory), -EFAULT);
    EXPECT_THAT(frames(), ElementsAre("0 01 00 02 f2ffffff 03562080 08000000 10000000 00000000 "
                                      "02000000 10000000 02000000 01000000 aabb0100 0000ffff "
                                      "ffff0200 00000000 0000"));
}

TEST_F(CapturingDeviceTest, OpeningsAndReadsThatFailAreTold) {
    EXPECT_EQ(device_.open_control(), 0);
    told_.control_ = -EBUSY;
    EXPECT_EQ(device_.open_control(), -EBUSY);
    EXPECT_EQ(device_.open_channel(Channel::kRma), 0);
    told_.opening_ = -ENODEV;
    EXPECT_EQ(device_.open_channel(Channel::kRma), -ENODEV);
    EXPECT_FALSE(device_.read_error(Channel::kDfu));
    told_.read_error_ = EIO;
    EXPECT_EQ(device_.read_error(Channel::kDfu), EIO);
    EXPECT_THAT(frames(), ElementsAre("0 02 00 02 f0ffffff", "0 02 03 02 00000000",
                                      "0 02 03 02 edffffff", "0 05 01 01 fbffffff"));
}

TEST_F(CapturingDeviceTest, HangUpIsToldOnceAndBeforeWhatComesAfterIt) {
    told_.hung_up_ = true;  // meanwhile
    EXPECT_EQ(device_.receive(Channel::kRma, Bytes{1}), -EPIPE);
    device_.set_time(1ns);
    device_.close_channel(Channel::kRma);
    EXPECT_THAT(frames(), ElementsAre("0 04 03 01 00000000", "0 00 03 02 e0ffffff 01",
                                      "1 03 03 02 00000000"));

    told_.hangs_up_ = true;
    SmallMemory memory;
    device_.ioctl(1, {}, memory);  // the reason comes first
    told_.hung_up_ = false;
    device_.set_time(2ns);
    const std::vector<std::string> seen = frames();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_THAT(seen[0], testing::StartsWith("1 01"));
    EXPECT_THAT(seen[1], testing::StartsWith("1 04"));
}

}  // namespace
}  // namespace sim
