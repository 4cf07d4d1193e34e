// SPDX-License-Identifier: Apache-2.0
// The co-processor's side of the remote memory channel: keeps its memory partitions on the host, as
// a program of steps tells, and checks every answer on the way.
//
// The program begins when the host opens the channel. A step that needs another partition than the
// last CONNECT named is preceded by a CONNECT. When the channel was lost in the middle, the next
// opening goes on from there: a write that got no answer is made again, then everything is read
// back, then comes the step that was under way.
#pragma once

#include <deque>
#include <initializer_list>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "sim/coprocessor.h"
#include "sim/packet_channel.h"
#include "sim/rma_program.h"

namespace sim {

class RmaClient : public PacketChannel {
  public:
    // All of them must outlive the client; it writes the progress into `status`.
    RmaClient(const Behaviour& behaviour, Faults& faults, Reporter& reporter, Status& status);

    void receive(std::span<const uint8_t> packet) override;

    // What the host must have on disk, byte for byte and nothing else. Between a write and its
    // answer the host may be one step ahead: `with_unanswered` shows it there.
    BackingFiles backing_files(bool with_unanswered) const;
    const std::set<std::string>& acknowledged_files() const { return acknowledged_; }

  private:
    enum class Purpose { kConnectFirst, kReadBack, kProgram };
    // The request whose answer is outstanding.
    struct Request {
        uint32_t command;
        Purpose purpose;
        RmaStep step;
        uint32_t word;       // of a read or a write
        bool block_outside;  // the block of the write is not in the message
    };

    void on_open() override;

    void begin();
    void resume();
    void ask_next();
    void ask(const RmaStep& step, Purpose purpose);
    Bytes message_for(const Request& request) const;
    void send_message(Bytes message, std::optional<size_t> step = {});
    void answered();
    void step_done();

    bool check_answer(const Request& request, std::span<const uint8_t> answer);
    bool check_words(std::span<const uint8_t> answer, size_t length,
                     std::initializer_list<uint32_t> words);
    bool check_data(const RmaStep& step, std::span<const uint8_t> data);
    uint32_t write_result(const Request& request) const;
    Bytes contents(const RmaStep& read) const;

    Faults& faults_;
    Status& status_;
    const RmaProgram program_;
    const bool goes_on_;

    size_t next_ = 0;  // the step of the program that is under way or comes next
    bool begun_ = false;
    bool write_lost_ = false;        // that step is a write, which comes before what is read back
    std::deque<RmaStep> read_back_;  // after the channel was lost
    std::optional<Request> outstanding_;

    std::vector<std::optional<Bytes>> memory_;  // per partition, none: not connected so far
    std::set<std::string> acknowledged_;        // files of partitions whose CONNECT was answered
    std::optional<size_t> connected_;           // the host knows this partition
    uint32_t last_memory_id_ = 0;               // of the last CONNECT
    uint32_t client_word_ = 0xC1000000;         // of the last CONNECT; another one each time
    uint32_t read_word_ = 0x5EAD0000;           // of the last DATA_READ; another one each time
};

}  // namespace sim
