// SPDX-License-Identifier: Apache-2.0
// An image served by the daemon's code, beside the same bytes sent by others' programs.
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "bench/affinity.h"
#include "bench/groups.h"
#include "bench/peer_transfers.h"

namespace bench {
namespace {

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
const Kind kXmodem = {"XMODEM-1k, its pause of 1 s included", make_xmodem};

// Serves the image once. Without one, the peers are shown by themselves.
using Serve = std::function<Transfer()>;

// The rounds' values, of one side.
struct Values {
    std::vector<double> rates;
    std::vector<double> cpu_times;

    void add(const Transfer& transfer) {
        rates.push_back(transfer.megabytes_per_second);
        cpu_times.push_back(transfer.cpu_seconds_per_gib);
    }
};

Figure figure_of(const std::string& what, const std::string& unit, const std::string& peer,
                 const std::vector<double>& ours, const std::vector<double>& theirs,
                 const std::optional<Goal>& goal) {
    if (ours.empty()) {
        return {"peers", peer + ", " + what, unit, median(theirs)};
    }
    const Pair pair = pair_from(ours, theirs);
    return {"peers", "4 KiB fragments, " + what, unit, pair.ours, reference(peer, pair), goal};
}

// In turns, after one transfer that is checked and does not count.
void compare(Figures& figures, const Effort& effort, const Serve& serve, const SentFile& file,
             const Kind& kind, Cores cores) {
    use_cores(cores);
    const std::unique_ptr<Peer> peer = kind.make(file);
    Values ours;
    Values theirs;
    if (serve) {
        serve();
    }
    peer->check();
    for (int round = 0; round < effort.rounds; ++round) {
        if (serve) {
            ours.add(serve());
        }
        theirs.add(peer->send());
    }
    use_cores(Cores::kAll);
    const bool counts = cores == Cores::kOne;
    const std::string where = counts ? "one core" : "all cores";
    figures.push_back(figure_of(where, "MB/s", kind.name, ours.rates, theirs.rates,
                                counts ? kind.rate : std::nullopt));
    figures.push_back(figure_of(where + ", sender's CPU", "s/GiB", kind.name, ours.cpu_times,
                                theirs.cpu_times, counts ? kind.cpu : std::nullopt));
}

// Bytes that neither repeat soon nor compress.
std::vector<uint8_t> made_up_image(size_t size) {
    std::vector<uint8_t> image(size);
    std::minstd_rand numbers;
    for (uint8_t& byte : image) {
        byte = static_cast<uint8_t>(numbers() >> 8);
    }
    return image;
}

}  // namespace

Figures peers(const Effort& effort) {
    Figures figures;
    const std::vector<uint8_t> image = made_up_image(effort.is_quick ? kMiB : 64 * kMiB);
    const SentFile file(image);
    const Serve serve;
    for (const Cores cores : {Cores::kOne, Cores::kAll}) {
        compare(figures, effort, serve, file, kTftp, cores);
        compare(figures, effort, serve, file, kZmodem, cores);
    }
    compare(figures, effort, serve, file, kXmodem, Cores::kOne);
    return figures;
}

}  // namespace bench
