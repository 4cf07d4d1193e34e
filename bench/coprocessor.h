// SPDX-License-Identifier: Apache-2.0
// The co-processor's side of a download, reduced to what is measured: it asks for one fragment
// after the other and takes the answers.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace bench {

inline constexpr const char* kDfuChannel = "/dev/glink_pkt_marlo_dfu";

// What is asked for: fragments in the image's order, from its start on, and again from there.
struct Course {
    uint32_t image_id = 0;
    uint32_t image_bytes = 0;     // a multiple of the fragment
    uint32_t fragment_bytes = 0;  // of each request
};

// IMG_OFFSET_REQ: 28 bytes, little-endian words.
inline constexpr size_t kRequestBytes = 28;
// In front of the fragment in IMG_OFFSET_RESP.
inline constexpr size_t kAnswerHeadBytes = 28;
// The request for the fragment at `offset`.
std::vector<uint8_t> request_for(const Course& course, uint32_t offset);

// One at a time asks, on the thread that calls ask_for.
class Coprocessor {
  public:
    // Sees an answer as it came.
    using Observer = std::function<void(uint32_t offset, std::span<const uint8_t> packet)>;

    virtual ~Coprocessor() = default;

    // The host's end of the channel; this object's, and open as long as it lives.
    virtual int hosts_end() const = 0;

    // Asks for `fragments` fragments: the seconds that it took. Throws std::runtime_error when an
    // answer is missing or has a wrong length.
    virtual double ask_for(uint64_t fragments, const Observer& observer = {}) = 0;
};

// Asks for the whole image once, and compares every answer, its checksum included, with what it
// must be. Throws std::runtime_error naming the offset.
void check_service(Coprocessor& coprocessor, const Course& course, std::span<const uint8_t> image);

// Over a SOCK_SEQPACKET pair: a packet is a message.
class SocketCoprocessor : public Coprocessor {
  public:
    explicit SocketCoprocessor(const Course& course);
    ~SocketCoprocessor() override;
    SocketCoprocessor(const SocketCoprocessor&) = delete;
    SocketCoprocessor& operator=(const SocketCoprocessor&) = delete;

    int hosts_end() const override { return ends_[1]; }
    // Closed here, where another process has it.
    void release_hosts_end();
    // Takes the packet by which a server in another process says that it can be asked.
    void await_server();
    double ask_for(uint64_t fragments, const Observer& observer = {}) override;

  private:
    Course course_;
    int ends_[2] = {-1, -1};
    std::vector<uint8_t> answer_;
};

}  // namespace bench
