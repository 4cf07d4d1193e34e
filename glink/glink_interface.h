// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

// One packet channel to the co-processor, as its users see it. A user constructs a transport from
// a glink_conn_config, registers its callbacks, connects, sends requests, disconnects and deletes
// the transport through this interface.

// Where the channel is and how its packets are read.
struct glink_conn_config {
    const char* channel_name;  // device name below "/dev/", NUL-terminated
    uint32_t read_size;        // bytes asked for in the first read of each incoming packet
};

// What the error callback is told.
enum glink_interface_error {
    GLINK_OPEN_FAILED = 0,  // the channel could not be opened, and no reconnection is in progress
    GLINK_IO_ERROR = 1,     // a poll, a read or the write of a request failed
    GLINK_SSR = 2,          // the channel hung up (the co-processor restarted); a reopen was tried
};

// Called with one whole packet, which is valid during the call only. Runs on the reader thread.
using glink_data_callback = std::function<void(uint8_t* data, uint32_t length)>;

// Runs on the reader thread; on the user's own thread for a failed connect or a failed request.
using glink_error_callback = std::function<void(glink_interface_error error)>;

class glink_interface {
  public:
    // Stores copies of both callbacks, replacing earlier ones. 0, or -1 on failure.
    virtual int register_cb(glink_data_callback data_cb, glink_error_callback err_cb) = 0;

    // Writes one packet of `len` bytes. Result of the last write: the byte count, 0 when nothing
    // was sent, or a negative errno (which the error callback has been told of).
    virtual int send_request(unsigned char* buf, unsigned int len) = 0;

    // Waits up to 2 s for data and fills `buf` with `len` bytes: 0, or -1. Only on a channel that
    // was connected without a reader.
    virtual int read_response(unsigned char* buf, unsigned int len) = 0;

    // Opens the channel, and starts the reader thread if asked to. 0, or -1 on failure.
    virtual int connect_interface(bool start_reader) = 0;

    // Ends the reader thread and closes the channel. Never called on the reader thread.
    virtual void disconnect_interface() = 0;

    virtual ~glink_interface() = default;
};

// How a user makes its transport: with make_marlo_glink (glink/marlo_glink.h), unless told
// otherwise.
using TransportFactory = std::function<std::unique_ptr<glink_interface>(glink_conn_config)>;
