// SPDX-License-Identifier: Apache-2.0
// The download of a co-processor out of order: it asks for images and pieces of them as it likes,
// answers the host's special operations or not, and ends the session now and then.
#pragma once

#include "sim/chaos/asking_channel.h"

namespace sim {

class ChaosDfu : public AskingChannel {
  public:
    // Both must outlive the channel.
    ChaosDfu(ChaosContext& context, const FirmwareBundle& firmware);

    void pump() override;
    void new_host() override;
    // The host holds the channel open for a download that has not ended.
    bool in_download() const { return is_open() && begun_ && host_.in_download(); }

  private:
    Bytes next_request(Dice& dice) override;
    bool may_send(const std::vector<Bytes>& packets, Dice& dice) override;
    bool may_ask() const override { return begun_; }
    bool anything_goes() const override { return !begun_ || uncertain_ || context_.host_ends; }
    void message_read(std::span<const uint8_t> message) override;
    std::optional<OwedPacket> after_error() const override { return host_.after_error(); }
    void seen(std::span<const uint8_t> packet) override;
    void sent(const OwedPacket& packet) override { host_.sent(packet); }
    std::string header_error(std::span<const uint8_t> packet) const override;
    void opened() override;

    enum class Asked { kNothing, kErase, kState };
    Bytes answer_to_host(Dice& dice);
    Bytes state_answer(Dice& dice) const;
    Bytes fragment_request(Dice& dice) const;
    uint32_t image_id(Dice& dice) const;
    uint32_t image_size(uint32_t id) const;

    const FirmwareBundle& firmware_;
    DfuHost host_;
    Asked asked_ = Asked::kNothing;  // by the host, and not answered yet
    bool was_open_ = false;          // by this host
    bool begun_ = false;             // the host has asked for the first erase
    bool uncertain_ = false;         // the channel was lost before that: who sends what is open
    bool abort_wanted_ = false;      // the message under way is to become too long
    bool hang_up_next_ = false;      // so that it does not
};

}  // namespace sim
