// SPDX-License-Identifier: Apache-2.0
// What the host must send for each message on the download channel, whatever the message is.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "sim/firmware_bundle.h"
#include "sim/packet_words.h"

namespace sim {

// One message that the host owes: any of these packets is right.
struct OwedPacket {
    enum class Follows { kNothing, kSession, kSessionEnd };
    std::vector<Bytes> allowed;
    Follows follows = Follows::kNothing;  // what has begun once it is sent
    bool on_error = false;                // owed because something failed
};

class DfuHost {
  public:
    explicit DfuHost(const FirmwareBundle& firmware) : firmware_(firmware) {}

    // A message of more bytes is none of the protocol: the host must end, by SIGABRT.
    static constexpr size_t kLongestMessage = 44;

    void begin_anew();  // another host

    // `message`: as the host's transport delivers it, not longer than that. None: nothing is owed.
    std::optional<OwedPacket> answer_to(std::span<const uint8_t> message);
    // The channel was lost and is back, or something failed on it.
    std::optional<OwedPacket> after_error() const;

    // The host erases this; whoever sees the request tells.
    void erase_requested(uint32_t offset, uint32_t size);
    void sent(const OwedPacket& packet);  // the whole packet has been taken

    // It can take part in a download that has not ended yet.
    bool in_download() const { return images_loaded_ && !finished_; }

  private:
    std::optional<OwedPacket> special_response(std::span<const uint8_t> message);
    std::optional<OwedPacket> act_on_state(std::span<const uint8_t> message);
    OwedPacket next_erase() const;
    OwedPacket info(uint32_t image) const;
    std::optional<OwedPacket> fragment(uint32_t image, uint32_t offset, uint32_t length) const;
    OwedPacket session_end();
    std::span<const uint8_t> image_bytes(uint32_t image) const;

    const FirmwareBundle& firmware_;
    std::vector<EraseRange> requested_;
    bool images_loaded_ = true;  // until the session has ended
    bool finished_ = false;
};

}  // namespace sim
