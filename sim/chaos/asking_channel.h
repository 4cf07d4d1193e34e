// SPDX-License-Identifier: Apache-2.0
// A channel on which the co-processor asks and the host answers: download, and remote memory. It
// sends requests good and bad, follows what the host reads of them, and so knows at each moment
// which packets the host owes. The host has to send those, in this order and nothing else, before
// it reads the next message.
#pragma once

#include "sim/chaos/broken_packets.h"
#include "sim/chaos/chaos_channel.h"
#include "sim/chaos/dfu_host.h"
#include "sim/chaos/host_reader.h"

namespace sim {

class AskingChannel : public ChaosChannel {
  public:
    AskingChannel(const char* name, const HostFraming& framing, const MessageLayout& layout,
                  ChaosContext& context)
        : ChaosChannel(name, context), reader_(framing), layout_(layout) {}

    void host_reads(size_t size, std::span<const uint8_t> bytes) override;
    void pump() override;
    void new_host() override;

    // Nothing is owed, and nothing sent is unread, if anybody is there to read.
    bool quiet() const { return !connected() || settled(); }
    // What has been owed for longer than the host ever takes; empty: nothing.
    std::string overdue(Time now);

  protected:
    // The request that comes next.
    virtual Bytes next_request(Dice& dice) = 0;
    // False: what is about to be sent would have consequences that nobody wants now.
    virtual bool may_send(const std::vector<Bytes>&, Dice&) { return true; }
    virtual bool may_ask() const { return true; }
    // Whether nobody knows what the host owes: packets are taken as they come.
    virtual bool anything_goes() const { return context_.host_ends; }

    virtual void message_read(std::span<const uint8_t> message) = 0;
    virtual std::optional<OwedPacket> after_error() const { return {}; }
    virtual void seen(std::span<const uint8_t> /*packet*/) {}  // taken from the host
    virtual void sent(const OwedPacket&) {}                    // by the host, whole
    virtual std::string header_error(std::span<const uint8_t> packet) const = 0;

    void opened() override { owed_.clear(); }
    void closed(bool was_hung_up) override;
    void lost() override { forget_owed(); }
    void read_failed(int error) override;
    int take(std::span<const uint8_t> packet) override;

    bool settled() const { return owed_.empty() && outbox_empty(); }
    void owe(std::optional<OwedPacket> packet);
    void forget_owed();
    const HostReader& reader() const { return reader_; }
    // The messages that a host in the reader's state makes of these packets, which it leaves there.
    static std::vector<Bytes> messages_of(const std::vector<Bytes>& packets, HostReader& reader);

  private:
    void begins_to_read();
    void come_to(HostReader::Outcome outcome);
    void send_next();
    const Bytes* owed_packet(std::span<const uint8_t> part) const;
    void plan_write_trouble();
    int refuse();
    void give_up(bool is_error);
    void written();

    HostReader reader_;
    const MessageLayout layout_;
    std::deque<OwedPacket> owed_;
    size_t written_ = 0;      // bytes of the first of them
    int refusals_ = 0;        // of that packet
    bool cut_write_ = false;  // the next write is taken in part
    std::optional<Time> owed_since_;
};

}  // namespace sim
