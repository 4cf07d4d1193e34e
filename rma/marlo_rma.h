// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "glink/glink_interface.h"

// Serves the memory partitions of a co-processor without flash from files of the host
// (rma/rma_messages.h has the protocol, rma/backing_file.h the files).
//
// The thread that boots the co-processor, or that hears of its restart, starts a connection. From
// then on each request is answered on the transport's reader thread, an accepted DATA_WRITE once
// its block is on the disk. What a request may cost is bounded by the longest packet and
// kMaximumBlock.
class marlo_rma {
  public:
    marlo_rma();
    explicit marlo_rma(TransportFactory make_transport);
    ~marlo_rma();
    marlo_rma(const marlo_rma&) = delete;
    marlo_rma& operator=(const marlo_rma&) = delete;

    // Opens the channel anew, with a transport of its own, and lets its reader thread serve it.
    // Ends the connection before. Where the channel cannot be opened, nothing is connected then.
    // Any thread but a reader thread, one call at a time; for as long as the channel takes to open
    // (up to 3 s).
    void startMarloRmaConnection();

    // --- Called by the transport (its reader thread; errors also on a sender's thread) ---

    // One message, valid during the call. Beyond its end it reads as zeros; a CONNECT that is not
    // whole makes no file.
    void rma_conn_res_event_cb(const uint8_t* data, uint32_t size);
    // Deletes the transport when it could not be opened; anything else is only logged.
    void rma_conn_error_cb(glink_interface_error error);

    // --- Steps of the protocol (reader thread) ---

    // Frames and sends one message; no payload where `payload` is null or `length` 0. The
    // transport's result; 0 without a transport or without memory for the message.
    int send_aon_request(uint32_t command, const uint8_t* payload, uint32_t length);

    // `size` bytes from `offset` of the partition file `name`, zeros behind its end. Empty where
    // it cannot be opened or read, is not a regular file, or `size` is above kMaximumBlock.
    std::vector<uint8_t> readFile(std::string name, uint32_t offset, uint32_t size);

    // Writes `size` bytes to `offset` of the existing file `path` and brings them to the disk: 0.
    // Otherwise, or where they would reach past the file's end, -1. A null `data` writes nothing.
    int AppendToFile(const std::string& path, uint32_t offset, uint32_t size, const char* data);

  private:
    using Bytes = std::span<const uint8_t>;

    void handle_connect(Bytes message);
    void handle_disconnect(Bytes message);
    void handle_data_read(Bytes message);
    void handle_data_write(Bytes message);
    void prepare_partition(uint32_t size);
    bool brings_name_to_disk(const std::string& path);
    int send_aon_request(uint32_t command, Bytes fields, Bytes block);

    // From the last CONNECT. The reader thread's alone; a later reader thread is started only
    // after the one before has ended.
    uint32_t memory_id_ = 0;
    uint32_t client_private_ = 0;
    uint32_t file_memory_id_ = 0;  // in the names of the partition's file
    uint32_t second_id_ = 0;
    // All of them. Not known at first: whoever gave a file its name may have been killed right
    // afterwards.
    bool names_are_on_disk_ = false;

    std::atomic<glink_interface*> glinkInterface = nullptr;  // owned
    TransportFactory make_transport_;
};
