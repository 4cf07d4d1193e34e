// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>

#include "fuzz/harness.h"

// The firmware download worked out a second time, for the fuzz target `dfu`: which messages must
// be sent, and no others. It is told of each event before the updater is.
class DownloadModel {
  public:
    // The images on disk; fuzz::pattern() gives their bytes.
    struct ImageFile {
        uint32_t id;
        const char* name;
        size_t size;
    };
    static constexpr ImageFile kImages[] = {
        {1, "flash.bin", 300}, {2, "partition_1.bin", 5}, {3, "apps.mbn", 100}};

    // Without the partition table nothing is loaded.
    void load_images(bool has_table);
    void drop_images() { is_loaded_ = false; }
    void erase();
    void ask_state();
    void channel_fails();
    void receive(std::span<const uint8_t> packet);

    // Must be the next message.
    void take(std::span<const uint8_t> message);
    void was_sent(std::span<const uint8_t> message);
    // All must have been sent.
    void finish_step() const;

    bool has_channel = false;
    std::string done_property;  // as what was sent leaves it

  private:
    struct Answer {
        uint32_t id = 0;
        uint32_t words[3] = {};
        size_t size = 0;  // of what follows the words
    };

    void expect(const Answer& answer);
    bool begins_to_continue();
    fuzz::Bytes image(uint32_t id) const;
    void erase_next();
    void tell_size(uint32_t id);
    void send_fragment(uint32_t id, uint32_t offset, uint32_t length);
    void end_session();
    void continue_from(std::span<const uint8_t> packet);
    void check_fragment(std::span<const uint8_t> fragment, uint32_t id, uint32_t offset) const;

    std::deque<Answer> expected_;
    bool is_loaded_ = false;
    bool continues_ = false;    // once it has been told to
    bool is_finished_ = false;  // the session's end has been answered
    size_t next_to_erase_ = 0;
};
