// SPDX-License-Identifier: Apache-2.0
// What all packet channels of the co-processor have in common: opened, closed and hung up by turns,
// with packets in and packets out. What is said on a channel is told by the class derived from it.
#pragma once

#include <deque>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>

#include "sim/observer.h"
#include "sim/reporter.h"

namespace sim {

class PacketChannel {
  public:
    // `name`: the channel in events. The reporter must outlive the channel.
    PacketChannel(const char* name, Reporter& reporter) : reporter_(reporter), name_(name) {}
    virtual ~PacketChannel() = default;
    PacketChannel(const PacketChannel&) = delete;
    PacketChannel& operator=(const PacketChannel&) = delete;

    int open();    // 0, -EBUSY, or what opening_error() says
    void close();  // what has not been read is lost
    // The co-processor stops: an open channel is dead until it is closed and opened again.
    void hang_up();
    bool is_open() const { return open_; }
    bool hung_up() const { return hung_up_; }

    // A packet of the host; the channel is open and not hung up.
    virtual void receive(std::span<const uint8_t> packet) = 0;
    bool readable() const { return !outbox_.empty(); }
    Bytes take_packet();  // readable() was true

    // Does what has become due by the reporter's time.
    virtual void clock_moved() {}
    // When clock_moved has something to do; none: nothing is under way.
    virtual std::optional<Time> next_deadline() const { return std::nullopt; }

  protected:
    // `description`: the fields of the event, without direction and channel. A packet to the host
    // is dropped, without an event, while nobody can read it.
    void send(Bytes packet, nlohmann::json description);
    void emit_received(nlohmann::json description);

    Reporter& reporter_;

  private:
    // 0, or the negated errno that the channel cannot be opened with now.
    virtual int opening_error() { return 0; }
    // Called after the channel's state has changed; what on_hang_up sends is dropped.
    virtual void on_open() {}
    virtual void on_hang_up() {}

    void emit_change(const char* change);
    void emit_packet(const char* direction, nlohmann::json description);

    const char* name_;
    bool open_ = false;
    bool hung_up_ = false;
    std::deque<Bytes> outbox_;
};

}  // namespace sim
