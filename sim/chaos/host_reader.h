// SPDX-License-Identifier: Apache-2.0
// How the host must make messages of what it reads from a channel that it watches.
//
// The first read of a message asks for a fixed number of bytes. If it brings enough of the header,
// the length field there tells how long the message is, and the host reads on, each time asking for
// the whole length, until it has that much; it cuts off what is too much, rests of further packets
// included. A message too short for the field is delivered as long as the first read, filled up
// with zeros.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "sim/observer.h"

namespace sim {

struct HostFraming {
    size_t first_read;  // bytes that the first read asks for
    size_t enough;      // bytes that it must bring for the length field to count
    size_t length_at;   // where that is
};

class HostReader {
  public:
    explicit HostReader(const HostFraming& framing) : framing_(framing) {}

    enum class Outcome {
        kMore,     // the message goes on with the next read
        kNothing,  // there was none, and that is no error
        kFailed,   // the host gives it up as an error
        kMessage,  // message() is complete
    };
    // A read got these bytes; none: there is nothing, or a hang-up.
    Outcome took(std::span<const uint8_t> bytes);
    Outcome failed(int error);
    void forget() { begin(); }  // the channel was closed

    bool between_messages() const { return is_first_ && retries_ == 0; }
    // How many bytes the next read must ask for.
    size_t next_read() const { return is_first_ ? framing_.first_read : wanted_; }
    const Bytes& message() const { return message_; }

  private:
    void begin();
    Outcome complete();

    HostFraming framing_;
    Bytes received_;
    Bytes message_;
    bool is_first_ = true;
    bool framed_ = false;
    size_t wanted_ = 0;
    int retries_ = 0;
    int empty_reads_ = 0;
};

}  // namespace sim
