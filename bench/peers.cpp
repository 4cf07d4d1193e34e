// SPDX-License-Identifier: Apache-2.0
// An image served by the daemon's code, beside the same bytes sent by others' programs.
#include <functional>
#include <string>
#include <vector>

#include "bench/affinity.h"
#include "bench/firmware.h"
#include "bench/groups.h"
#include "bench/peer_transfers.h"
#include "bench/serving.h"

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

// Serves the image once.
using Serve = std::function<Transfer()>;

// As the daemon runs, its log included.
Transfer sent_by(Session& session, uint64_t bytes) {
    const Served served = session.serve(bytes);
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

Figure figure_of(const std::string& what, const std::string& unit, const std::string& peer,
                 const std::vector<double>& ours, const std::vector<double>& theirs,
                 const std::optional<Goal>& goal) {
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
    serve();
    peer->check();
    for (int round = 0; round < effort.rounds; ++round) {
        ours.add(serve());
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

}  // namespace

Figures peers(const Effort& effort) {
    Figures figures;
    prepare_daemon();
    const std::vector<uint8_t> image = made_up_image(effort.is_quick ? kMiB : 64 * kMiB);
    const SentFile file(image);
    const Firmware firmware(image, 2);
    Session session = socket_session({kServedImage, static_cast<uint32_t>(image.size()), 4096},
                                     image, Session::Server::kDaemon);
    const Serve serve = [&] { return sent_by(session, image.size()); };
    for (const Cores cores : {Cores::kOne, Cores::kAll}) {
        compare(figures, effort, serve, file, kTftp, cores);
        compare(figures, effort, serve, file, kZmodem, cores);
    }
    compare(figures, effort, serve, file, kXmodem, Cores::kOne);
    return figures;
}

}  // namespace bench
