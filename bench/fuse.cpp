// SPDX-License-Identifier: Apache-2.0
#include <cstdio>

#include "bench/affinity.h"
#include "bench/firmware.h"
#include "bench/fuse_coprocessor.h"
#include "bench/groups.h"
#include "bench/serving.h"
#include "daemon/marlo_deamon_log.h"

namespace bench {
namespace {

using marlo_deamon_log::log_level;

constexpr uint32_t kMiB = 1024 * 1024;

Session fuse_session(const TemporaryDirectory& mount_point, const Course& course,
                     std::span<const uint8_t> image, Session::Server server) {
    return {std::make_unique<FuseCoprocessor>(course, mount_point.path()), course, image, server};
}

Figures measured(const Effort& effort) {
    prepare_daemon();
    const std::vector<uint8_t> image = made_up_image(effort.is_quick ? kMiB : 16 * kMiB);
    // cppcheck-suppress unreadVariable ; its files are there as long as it is
    const Firmware firmware(image, 2);
    const TemporaryDirectory directories[2];
    const Course course = {kServedImage, static_cast<uint32_t>(image.size()), 4096};
    Session ours = fuse_session(directories[0], course, image, Session::Server::kDaemon);
    Session bare = fuse_session(directories[1], course, image, Session::Server::kBareLoop);
    Figures figures;
    for (const Cores cores : {Cores::kOne, Cores::kAll}) {
        use_cores(cores);
        for (const log_level level : {log_level::error, log_level::verbose}) {
            marlo_deamon_log::set_level(level);
            const Compared compared =
                compare(effort, image.size() / (cores == Cores::kAll ? 4 : 1), ours, bare);
            figures.push_back({"fuse",
                               std::string("4 KiB, ") +
                                   (cores == Cores::kOne ? "one core" : "all cores") +
                                   ", log level " + std::to_string(static_cast<int>(level)),
                               "MB/s", compared.rate.ours, reference("bare loop", compared.rate)});
            if (cores == Cores::kOne) {
                figures.back().goal = at_least(0.90);
            }
        }
    }
    use_cores(Cores::kAll);
    return figures;
}

}  // namespace

Figures fuse(const Effort& effort) {
    try {
        return measured(effort);
    } catch (const sim::MountError& error) {
        std::fprintf(stderr, "fuse: no figures: %s\n", error.what());
        return {};
    }
}

}  // namespace bench
