// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "fwupdater/marlo_fw_updater.h"
#include "platform/scripted/scripted_platform.h"
#include "tests/bytes.h"

using Lines = std::vector<std::string>;

inline constexpr char kImages[] = "/vendor/firmware_mnt/image/";

// A message as the co-processor sends it; nobody looks at its magic and CRC.
Bytes message(uint32_t id, const std::vector<uint32_t>& words = {});

// A packet in words, "13: 0 4096 8192" or "6: 2 8 4 (ab cd 00 00)", judged with zlib's CRC.
std::string packet_text(const Bytes& packet);

// A misc-data packet: its header in words and what it carries, "1: 0 4 2 EFGH" or
// "4: 0 4 0 cbf43926".
std::string misc_packet_text(const Bytes& packet);

// What an updater did, in order: packets as "send ...", reports as "info ..." and so on, those of a
// misc-data transfer as "misc info ...", "property ..." whenever the update property changed since
// the step before.
class Recording : public marlo_fw_updater::Callback {
  public:
    void note(const std::string& line);
    Lines take();

    void handleDFUResponse(std::string message, Status status) override;
    void handleSHMResponse(std::string message, Status status) override;
    void onDFUStateRecived(DFUState state) override;

    // What a test does as soon as something was reported.
    std::function<void(const std::string& line)> on_report;

  private:
    void report(const std::string& line);

    std::mutex lock_;  // the thread tests record from two threads
    Lines lines_;
    std::string property_;
};

// One synchronous read.
struct Answer {
    int32_t status = 0;
    uint32_t limit = 0;
    int error = 0;                // the read fails with it, and brings nothing
    bool brings_nothing = false;  // the read succeeds nevertheless
};

// How a test's transport behaves.
struct TransportScript {
    bool opens = true;
    std::deque<int> results;     // of the next sends; the byte count when empty
    std::deque<Answer> answers;  // to the next reads; `usual_answer` when empty
    Answer usual_answer;
    std::string (*text)(const Bytes& packet) = packet_text;
};

// The transport of a test: records what is sent, and answers as scripted.
class RecordingTransport : public glink_interface {
  public:
    RecordingTransport(glink_conn_config config, Recording& recording, TransportScript& script);
    ~RecordingTransport() override;

    int register_cb(glink_data_callback data_cb, glink_error_callback err_cb) override;
    int send_request(unsigned char* buf, unsigned int len) override;
    int read_response(unsigned char* buf, unsigned int len) override;
    int connect_interface(bool start_reader) override;
    void disconnect_interface() override {}

    void deliver(Bytes packet) { data_cb_(packet.data(), static_cast<uint32_t>(packet.size())); }
    void fail(glink_interface_error error) { error_cb_(error); }

  private:
    Recording& recording_;
    TransportScript& script_;
    glink_data_callback data_cb_;
    glink_error_callback error_cb_;
};

// A test ends with nothing left over: every step was expected, every scripted result used.
class UpdaterTest : public ::testing::Test {
  protected:
    void SetUp() override { scripted::reset_platform(); }
    void TearDown() override;

    // The partition table, with these elements below the root's Partition_table.
    void table(const std::string& partitions, int boot_loader_offset = 0);
    void image(const std::string& name, const std::string& contents);
    // Starts a session and forgets its first steps.
    void start();
    void receive(uint32_t id, const std::vector<uint32_t>& words = {}) {
        transport_->deliver(message(id, words));
    }
    // How many log lines contain this text.
    size_t logged(const std::string& text) { return scripted::platform().count(text); }
    // All steps since the last call.
    void expect(const Lines& lines) {
        EXPECT_THAT(recording_.take(), ::testing::ElementsAreArray(lines));
    }

    Recording recording_;
    TransportScript script_;
    RecordingTransport* transport_ = nullptr;
    marlo_fw_updater updater_{[this](glink_conn_config config) {
        auto made = std::make_unique<RecordingTransport>(config, recording_, script_);
        transport_ = made.get();
        return made;
    }};
};
