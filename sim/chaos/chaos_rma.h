// SPDX-License-Identifier: Apache-2.0
// Remote memory of a co-processor out of order: requests from a handful of partitions, the wildest
// offsets and sizes among them.
#pragma once

#include <vector>

#include "sim/chaos/asking_channel.h"
#include "sim/chaos/rma_host.h"
#include "sim/rma_program.h"

namespace sim {

class ChaosRma : public AskingChannel {
  public:
    // `huge_partitions`: the host's memory is limited, so that partitions of gigabytes may be asked
    // for without any being made.
    ChaosRma(ChaosContext& context, bool huge_partitions);

    void new_host() override;
    const BackingFiles& files() const { return host_.files(); }

  private:
    Bytes next_request(Dice& dice) override;
    bool may_send(const std::vector<Bytes>& packets, Dice& dice) override;
    void message_read(std::span<const uint8_t> message) override;
    std::string header_error(std::span<const uint8_t> packet) const override;

    Bytes connect(Dice& dice);
    Bytes hostile_connect(Dice& dice);
    Bytes read(Dice& dice) const;
    Bytes write(Dice& dice) const;
    Bytes hostile(Dice& dice);

    const bool huge_partitions_;
    std::vector<RmaPartition> partitions_;
    size_t connected_ = 0;  // index of the partition that was connected last
    RmaHost host_;
};

}  // namespace sim
