// SPDX-License-Identifier: Apache-2.0
// One image served to one co-processor, and what that costs.
#pragma once

#include <memory>

#include "bench/coprocessor.h"
#include "bench/fragment_server.h"
#include "bench/rounds.h"

namespace bench {

struct Served {
    double megabytes_per_second = 0;  // of image bytes
    double us_per_fragment = 0;
    double cpu_us_per_fragment = 0;  // of the serving thread
};

// A server and the co-processor that asks it. Every answer has been compared with what it must be
// once this is constructed.
class Session {
  public:
    enum class Server { kDaemon, kBareLoop };
    // `image` must outlive it; the daemon's server loads the same bytes from the firmware
    // directory.
    Session(std::unique_ptr<Coprocessor> coprocessor, const Course& course,
            std::span<const uint8_t> image, Server server);

    // Asks for `bytes` in fragments.
    Served serve(uint64_t bytes);
    const Course& course() const { return course_; }

  private:
    Course course_;
    std::unique_ptr<Coprocessor> coprocessor_;
    std::unique_ptr<FragmentServer> server_;  // ends before its channel does
};

// Over a socket pair.
Session socket_session(const Course& course, std::span<const uint8_t> image,
                       Session::Server server);

// The costs of both, measured in turns, `bytes` each time, after a round that does not count.
struct Compared {
    Pair rate;  // MB/s
    Pair cpu;   // us per fragment
};
Compared compare(const Effort& effort, uint64_t bytes, Session& ours, Session& theirs);

}  // namespace bench
