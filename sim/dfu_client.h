// SPDX-License-Identifier: Apache-2.0
// The co-processor's side of a firmware download: it has its flash erased, asks for image after
// image, writes them, and checks every message of the host on the way.
//
// The course: erase requests (one per range that the host is told to erase, in the table's order),
// state query, MG_UPDT_REQ; then the co-processor leads: IMG_INFO_REQ, IMG_OFFSET_REQ until the
// image is complete, IMG_UPDT_END_REQ, the next image; at last SESSION_END_REQ. A host that lost
// the channel asks for the state and answers the request that the state names.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>

#include "sim/coprocessor.h"
#include "sim/dfu_packet.h"
#include "sim/flash.h"
#include "sim/packet_channel.h"

namespace sim {

// A hang-up leaves the download where it is.
class DfuClient : public PacketChannel {
  public:
    // All of them must outlive the client; it writes the progress into `status`.
    DfuClient(const Behaviour& behaviour, Faults& faults, const FirmwareBundle& firmware,
              Reporter& reporter, Status& status);

    void receive(std::span<const uint8_t> packet) override;
    void clock_moved() override;
    std::optional<Time> next_deadline() const override;

    bool finished_once() const { return finished_once_; }
    bool flash_matches(std::string* why) const;

  private:
    // The request whose answer is outstanding.
    struct Request {
        uint32_t id;  // kInfoRequest, kOffsetRequest, kSessionEndRequest; 0: none
        uint32_t image = 0;
        uint32_t offset = 0;
        uint32_t length = 0;
    };
    // Something that takes its time at the flash rate.
    struct Work {
        Time start;
        Time due;
        uint64_t bytes;
        bool erasing;            // else it writes to the flash
        uint64_t erased_before;  // bytes erased in all
        std::function<void()> done;
    };

    int opening_error() override;
    void on_open() override;
    void on_hang_up() override;
    void send_message(std::initializer_list<uint32_t> payload, uint32_t id);
    void ask(const Request& request);
    bool hangs_up(Fault fault);
    void cancel();
    dfu::State state() const;
    void work(uint64_t bytes, bool erasing, std::function<void()> done);
    void finish_work();

    void special_request(std::span<const uint8_t> packet);
    void erase(uint32_t start, uint32_t size);
    bool erase_is_expected(uint32_t start, uint32_t size);
    void begin_anew();
    void answer_state();
    void update_request(std::span<const uint8_t> packet);
    bool answers_request(std::span<const uint8_t> packet, uint32_t request_id);
    void info_response(std::span<const uint8_t> packet);
    void offset_response(std::span<const uint8_t> packet);
    void session_end_response(std::span<const uint8_t> packet);

    void begin_image();
    void ask_for_image();
    uint32_t image_size(uint32_t id) const;
    void erase_own_ranges(const Image& image);
    void next_fragment();
    void write_fragment(std::span<const uint8_t> data);
    const Image& image() const { return firmware_.images[image_index_]; }
    Flash& bank(const Image& image);
    bool check_words(std::span<const uint8_t> packet, size_t length,
                     std::initializer_list<uint32_t> words);

    const Behaviour& behaviour_;
    Faults& faults_;
    const FirmwareBundle& firmware_;
    Status& status_;

    std::optional<Work> work_;
    std::optional<Time> back_at_;  // the channel cannot be opened before; kForEver: not at all

    size_t next_erase_ = 0;              // index of the range that the host must have erased next
    std::vector<bool> range_requested_;  // per range: the host has asked for it in this download
    std::vector<bool> range_refused_;    // per range: but in vain
    bool init_reported_ = false;         // the host may start the update
    bool cancelled_ = false;             // by the co-processor; until the host begins anew
    bool erases_lost_ = false;  // the channel hung up before all was erased: a host that goes on
                                // from the state cannot know of the rest
    Request outstanding_{0};
    size_t image_index_ = 0;
    bool finished_once_ = false;

    Flash flash_;             // the partitions of the table
    Flash flash_image_bank_;  // where flash.bin goes: the table does not tell
    Flash partition_1_bank_;  // where partition_1.bin goes
};

}  // namespace sim
