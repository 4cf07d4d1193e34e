// SPDX-License-Identifier: Apache-2.0
#include "bench/serving.h"

#include "bench/channel_open.h"

namespace bench {
namespace {

double seconds_of(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace

Session::Session(std::unique_ptr<Coprocessor> coprocessor, const Course& course,
                 std::span<const uint8_t> image, Server server)
    : course_(course), coprocessor_(std::move(coprocessor)) {
    if (server == Server::kBareLoop) {
        server_ = std::make_unique<BareLoop>(coprocessor_->hosts_end(), image);
    } else {
        offer_channel(kDfuChannel, coprocessor_->hosts_end());
        server_ = std::make_unique<DaemonServer>();
        offer_channel(kDfuChannel, -1);
    }
    check_service(*coprocessor_, course_, image);
}

Served Session::serve(uint64_t bytes) {
    const uint64_t fragments = bytes / course_.fragment_bytes;
    const clockid_t clock = server_->cpu_clock();
    const double cpu_begin = seconds_of(clock);
    const double seconds = coprocessor_->ask_for(fragments);
    const double cpu = seconds_of(clock) - cpu_begin;
    const auto count = static_cast<double>(fragments);
    return {static_cast<double>(bytes) / 1e6 / seconds, seconds * 1e6 / count, cpu * 1e6 / count};
}

Session socket_session(const Course& course, std::span<const uint8_t> image,
                       Session::Server server) {
    return {std::make_unique<SocketCoprocessor>(course), course, image, server};
}

Compared compare(const Effort& effort, uint64_t bytes, Session& ours, Session& theirs) {
    ours.serve(bytes);
    theirs.serve(bytes);
    std::vector<double> rates[2];
    std::vector<double> cpus[2];
    for (int round = 0; round < effort.rounds; ++round) {
        for (int side = 0; side < 2; ++side) {
            Session& session = side == 0 ? ours : theirs;
            const Served served = session.serve(bytes);
            rates[side].push_back(served.megabytes_per_second);
            cpus[side].push_back(served.cpu_us_per_fragment);
        }
    }
    return {pair_from(rates[0], rates[1]), pair_from(cpus[0], cpus[1])};
}

}  // namespace bench
