// SPDX-License-Identifier: Apache-2.0
// The co-processor's side of the misc data channel: takes the files that it needs for Bluetooth
// into its memory, and checks every packet of the host on the way.
//
// The course, from the opening of the channel on: resource after resource by ascending type, each
// as start, data, CRC; then one finish. A resource that was refused, or got no answer, is started
// anew, up to three times in all, before the host goes on to the next one. The data is cut into
// packets of exactly the announced size; a rest that would leave one byte over travels in one
// packet, which is then one byte longer than announced.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "sim/coprocessor.h"
#include "sim/misc_data_packet.h"
#include "sim/packet_channel.h"

namespace sim {

class MiscDataReceiver : public PacketChannel {
  public:
    // All of them must outlive the receiver; it writes the progress into `status`.
    MiscDataReceiver(const Behaviour& behaviour, Faults& faults, Reporter& reporter,
                     Status& status);

    void receive(std::span<const uint8_t> packet) override;

    // The co-processor stops: its memory does not survive that.
    void forget() { memory_.clear(); }

    // Compares what was received with what it must be: each file, and nothing else. False: *why, if
    // not null, names the first difference.
    bool matches(const MiscFiles& files, std::string* why) const;

  private:
    enum class Awaited { kStart, kData, kCrc, kNothing };

    void on_open() override;

    // Each returns the status to answer with; 0: taken.
    uint32_t take(std::span<const uint8_t> packet);
    uint32_t start(const misc::Header& header);
    uint32_t data(const misc::Header& header, std::span<const uint8_t> payload);
    uint32_t crc(const misc::Header& header, uint32_t value);
    uint32_t finish();
    uint32_t breach(const std::string& what);

    std::string start_error(const misc::Header& header) const;
    std::string data_error(const misc::Header& header) const;
    std::string awaited_error(const std::string& name, Awaited wanted, uint32_t type) const;
    void refused(uint32_t kind);
    uint32_t limit() const;

    const Behaviour& behaviour_;
    Faults& faults_;
    Status& status_;

    Awaited awaited_ = Awaited::kStart;
    std::optional<uint32_t> type_;  // of the resource that was started last
    int attempts_ = 0;              // at this resource, the one under way included
    bool refused_ = false;          // something of this attempt was refused or not answered
    uint32_t total_ = 0;            // bytes of the resource
    uint32_t sequence_ = 0;         // of the data packet before
    Bytes data_;                    // of the resource under way
    MiscFiles memory_;              // the resources that are complete
};

}  // namespace sim
