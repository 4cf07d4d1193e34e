// SPDX-License-Identifier: Apache-2.0
// A packet channel of a co-processor out of order: what all of them can do wrong.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>

#include "sim/chaos/dice.h"
#include "sim/reporter.h"

namespace sim {

// What the parts of one run have in common.
struct ChaosContext {
    DiceBox dice;
    Reporter& reporter;
    uint32_t noise = 0;                          // how many in a hundred packets are out of order
    uint32_t requests_due = 0;                   // that the co-processor still has to send
    bool host_ends = false;                      // whatever is owed may not come any more
    bool abort_due = false;                      // the host has been given what it must not survive
    uint64_t tasks = 0;                          // all that the host was given to do
    std::map<std::string, uint64_t> tally = {};  // how often which thing was done, in words

    void count(const std::string& what) { ++tally[what]; }
};

// What is to go wrong next, and how many times; kForEver: it does not end.
struct ChannelTrouble {
    static constexpr uint32_t kForEver = UINT32_MAX;

    uint32_t failing_opens = 0;
    int open_error = 0;
    uint32_t failing_reads = 0;
    int read_error = 0;
    uint32_t empty_reads = 0;
    uint32_t odd_polls = 0;
    unsigned odd_events = 0;
    uint32_t failing_writes = 0;
    int write_error = 0;  // 0: nothing of the packet is taken, and that is no error
};

class ChaosChannel {
  public:
    // `name`: the channel in failures and events. The context must outlive the channel.
    ChaosChannel(std::string name, ChaosContext& context)
        : context_(context), name_(std::move(name)) {}
    virtual ~ChaosChannel() = default;
    ChaosChannel(const ChaosChannel&) = delete;
    ChaosChannel& operator=(const ChaosChannel&) = delete;

    // As those of Device.
    int open();
    void close();
    int receive(std::span<const uint8_t> packet);
    bool readable() const;
    bool hung_up() const { return hung_up_; }
    Bytes take_packet();
    std::optional<int> read_error();
    unsigned odd_events() const { return open_ && !hung_up_ ? odd() : 0; }
    void polled();
    virtual void host_reads(size_t /*size*/, std::span<const uint8_t>) {}

    bool is_open() const { return open_; }
    // Reads that bring nothing and odd polls are still to come.
    bool expects_looks() const { return trouble_.empty_reads > 0 || trouble_.odd_polls > 0; }
    void hang_up();
    // Sends what is next, if it is its turn. To be called whenever something has happened.
    virtual void pump() {}
    // The host that knew the channel has ended, and another one begins.
    virtual void new_host() {}

    // From now on this goes wrong. What poll has promised to a reader stays there for one read.
    void set_trouble(const ChannelTrouble& trouble);

  protected:
    virtual void opened() {}
    virtual void closed(bool /*was_hung_up*/) {}
    virtual void lost() {}  // hung up
    virtual void read_failed(int /*error*/) {}
    // A packet of the host: what write returns.
    virtual int take(std::span<const uint8_t> packet) = 0;

    void send(Bytes packet);
    bool connected() const { return open_ && !hung_up_; }
    bool outbox_empty() const { return outbox_.empty(); }
    Dice roll(const char* what) { return context_.dice.roll(name_ + " " + what); }
    void count(const std::string& what) { context_.count(name_ + ": " + what); }
    void fail(const std::string& what) { context_.reporter.fail(name_ + ": " + what); }

    ChaosContext& context_;
    ChannelTrouble trouble_;

  private:
    bool promises_read() const;
    unsigned odd() const { return trouble_.odd_polls > 0 ? trouble_.odd_events : 0; }
    void emit_change(const char* change);
    void emit_packet(const char* direction, std::span<const uint8_t> packet);

    const std::string name_;
    bool open_ = false;
    bool hung_up_ = false;
    std::deque<Bytes> outbox_;
};

}  // namespace sim
