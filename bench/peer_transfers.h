// SPDX-License-Identifier: Apache-2.0
// How others send a file to somebody on the same machine.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

#include "bench/temporary_directory.h"

namespace bench {

// What a transfer comes to. MB: 10^6 bytes; GiB: 2^30.
struct Transfer {
    double megabytes_per_second = 0;
    double cpu_seconds_per_gib = 0;  // user and system, of the sending side
};
Transfer transfer(uint64_t bytes, double seconds, double sender_cpu_seconds);

// What is sent, and a place for what is received.
class SentFile {
  public:
    explicit SentFile(std::span<const uint8_t> contents);

    std::filesystem::path path() const { return sent_.path() / "image"; }
    uint64_t size() const { return size_; }
    // Of the same name as the sent one.
    std::filesystem::path received_directory() const { return received_.path(); }
    // Throws std::runtime_error, naming `receiver`, unless the received file is the sent one; then
    // removes it.
    void check_received(const std::string& receiver) const;

  private:
    TemporaryDirectory sent_;
    TemporaryDirectory received_;
    uint64_t size_;
};

// One protocol. `file` must outlive it; programs that it starts have the cores of its maker.
class Peer {
  public:
    virtual ~Peer() = default;
    // To nowhere: what the receiver would do with the bytes is not measured.
    virtual Transfer send() = 0;
    // To a file, which must be the one that was sent. Both throw std::runtime_error.
    virtual void check() = 0;
};

// atftpd, asked by curl: one block of 4096 bytes, one acknowledgement, the next. The time is that
// which curl takes from the request to the last block.
std::unique_ptr<Peer> make_tftp(const SentFile& file);
// sz and rz, over a pair of pipes: blocks of 8 KiB in one stream. The time is that from the start
// of both programs to their end.
std::unique_ptr<Peer> make_zmodem(const SentFile& file);
// sx and rx, likewise: one block of 1 KiB, one acknowledgement, the next. It begins with a pause of
// one second.
std::unique_ptr<Peer> make_xmodem(const SentFile& file);

}  // namespace bench
