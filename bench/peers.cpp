// SPDX-License-Identifier: Apache-2.0
// An image served by the daemon's code, beside the same bytes sent by others' programs.
#include <iterator>
#include <string>
#include <vector>

#include "bench/affinity.h"
#include "bench/firmware.h"
#include "bench/groups.h"
#include "bench/peer_transfers.h"
#include "bench/serving.h"
#include "daemon/marlo_deamon_log.h"

namespace bench {
namespace {

using marlo_deamon_log::log_level;

constexpr size_t kMiB = size_t{1024} * 1024;

struct Kind {
    std::string name;
    std::unique_ptr<Peer> (*make)(const SentFile& file);
    // On one core; what no goal is set for is shown all the same.
    std::optional<Goal> rate = {};
    std::optional<Goal> cpu = {};
};

const Kind kTftp = {"TFTP", make_tftp, at_least(1.5)};
const Kind kZmodem = {"ZMODEM", make_zmodem, at_least(3), at_most(1)};
const Kind kXmodem = {"XMODEM-1k", make_xmodem};

// Level 1 is like for like, the peers log nothing; level 4 is how the daemon runs.
constexpr log_level kLevels[] = {log_level::error, log_level::verbose};

Transfer served_by(Session& session, log_level level) {
    marlo_deamon_log::set_level(level);
    const Served served = session.serve(session.course().image_bytes);
    const uint32_t fragments_per_gib = (1U << 30) / session.course().fragment_bytes;
    return {served.megabytes_per_second, served.cpu_us_per_fragment / 1e6 * fragments_per_gib};
}

// The rounds' values, of one side.
struct Values {
    std::vector<double> rates;
    std::vector<double> cpu_times;

    void add(const Transfer& transfer) {
        rates.push_back(transfer.megabytes_per_second);
        cpu_times.push_back(transfer.cpu_seconds_per_gib);
    }
};

void add_figures(Figures& figures, const Kind& kind, const std::string& name, const Values& ours,
                 const Values& theirs, bool has_goals) {
    const Pair rate = pair_from(ours.rates, theirs.rates);
    const Pair cpu = pair_from(ours.cpu_times, theirs.cpu_times);
    figures.push_back({"peers", name, "MB/s", rate.ours, reference(kind.name, rate),
                       has_goals ? kind.rate : std::nullopt});
    figures.push_back({"peers", name + ", CPU", "s/GiB", cpu.ours, reference(kind.name, cpu),
                       has_goals ? kind.cpu : std::nullopt});
}

// In turns, after one transfer that is checked and does not count.
void compare(Figures& figures, const Effort& effort, Session& session, const SentFile& file,
             const Kind& kind, Cores cores) {
    use_cores(cores);
    const std::unique_ptr<Peer> peer = kind.make(file);
    Values ours[std::size(kLevels)];
    Values theirs;
    peer->check();
    for (int round = 0; round < effort.rounds; ++round) {
        for (size_t level = 0; level < std::size(kLevels); ++level) {
            ours[level].add(served_by(session, kLevels[level]));
        }
        theirs.add(peer->send());
    }
    use_cores(Cores::kAll);
    for (size_t level = 0; level < std::size(kLevels); ++level) {
        const std::string name = std::string("4 KiB, ") +
                                 (cores == Cores::kOne ? "one core" : "all cores") +
                                 ", log level " + std::to_string(static_cast<int>(kLevels[level]));
        add_figures(figures, kind, name, ours[level], theirs, cores == Cores::kOne);
    }
}

}  // namespace

Figures peers(const Effort& effort) {
    Figures figures;
    prepare_daemon();
    const std::vector<uint8_t> image = made_up_image(effort.is_quick ? kMiB : 64 * kMiB);
    const SentFile file(image);
    // cppcheck-suppress unreadVariable ; its files are there as long as it is
    const Firmware firmware(image, 2);
    Session session = socket_session({kServedImage, static_cast<uint32_t>(image.size()), 4096},
                                     image, Session::Server::kDaemon);
    for (const Cores cores : {Cores::kOne, Cores::kAll}) {
        compare(figures, effort, session, file, kTftp, cores);
        compare(figures, effort, session, file, kZmodem, cores);
    }
    compare(figures, effort, session, file, kXmodem, Cores::kOne);
    return figures;
}

}  // namespace bench
