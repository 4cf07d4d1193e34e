// SPDX-License-Identifier: Apache-2.0
// The misc data channel of a co-processor out of order: it refuses, keeps silent, answers too much
// or too little, and wants packets of impossible sizes. What it is sent must be right all the same.
#pragma once

#include "sim/chaos/chaos_channel.h"
#include "sim/coprocessor.h"
#include "sim/misc_data_packet.h"

namespace sim {

class ChaosMisc : public ChaosChannel {
  public:
    // `files`: what the host has, by type. Both must outlive the channel.
    ChaosMisc(ChaosContext& context, const MiscFiles& files)
        : ChaosChannel("misc", context), files_(files) {}

  private:
    void opened() override { begun_ = false; }
    int take(std::span<const uint8_t> packet) override;
    void check(std::span<const uint8_t> packet);
    void check_data(const misc::Header& header, std::span<const uint8_t> payload);
    void answer(std::span<const uint8_t> packet);
    void answer_oddly(Bytes right, Dice& dice);

    const MiscFiles& files_;
    bool begun_ = false;   // there was a start packet
    uint32_t type_ = 0;    // of the resource that was begun last
    size_t received_ = 0;  // bytes of it
};

}  // namespace sim
