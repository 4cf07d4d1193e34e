// SPDX-License-Identifier: Apache-2.0
#include "bench/affinity.h"
#include "bench/allocations.h"
#include "bench/firmware.h"
#include "bench/groups.h"
#include "bench/serving.h"
#include "daemon/marlo_deamon_log.h"

namespace bench {
namespace {

using marlo_deamon_log::log_level;

constexpr uint32_t kMiB = 1024 * 1024;
constexpr uint32_t kUsualFragment = 4096;

struct Setting {
    uint32_t fragment_bytes;
    Cores cores;
    log_level level;
};

std::string name_of(const Setting& setting) {
    const uint32_t bytes = setting.fragment_bytes;
    return (bytes < 1024 ? std::to_string(bytes) + " B" : std::to_string(bytes / 1024) + " KiB") +
           (setting.cores == Cores::kOne ? ", one core" : ", all cores") + ", log level " +
           std::to_string(static_cast<int>(setting.level));
}

// Asked for of fragments of the usual size, on one core.
void set_goals(const Setting& setting, Figure& rate, Figure& cpu) {
    if (setting.fragment_bytes != kUsualFragment || setting.cores != Cores::kOne) {
        return;
    }
    if (setting.level == log_level::error) {
        rate.goal = at_least(0.92);
        cpu.goal = at_most(1.3);
    } else {
        rate.goal = at_least(0.75);
    }
}

void measure(const Effort& effort, const Setting& setting, Session& ours, Session& bare,
             Figures& figures) {
    use_cores(setting.cores);
    marlo_deamon_log::set_level(setting.level);
    // On all cores a fragment may take twenty times as long: fewer tell as much.
    const uint64_t bytes = ours.course().image_bytes / (setting.cores == Cores::kAll ? 16 : 1);
    const Compared compared = compare(effort, bytes, ours, bare);
    Figure rate = {"session", name_of(setting), "MB/s", compared.rate.ours,
                   reference("bare loop", compared.rate)};
    Figure cpu = {"session", name_of(setting) + ", CPU", "us", compared.cpu.ours,
                  reference("bare loop", compared.cpu)};
    set_goals(setting, rate, cpu);
    figures.push_back(std::move(rate));
    figures.push_back(std::move(cpu));
}

// Once warm.
void measure_heap(Session& ours, Figures& figures) {
    const uint64_t bytes = ours.course().image_bytes;
    const uint64_t count = bytes / ours.course().fragment_bytes;
    const auto fragments = static_cast<double>(count);
    const uint64_t made_before = allocations();
    const size_t kept_before = allocated_bytes();
    ours.serve(bytes);
    const uint64_t made = allocations() - made_before;
    const size_t kept = allocated_bytes() - kept_before;
    // The packet and the text of its report.
    figures.push_back({"session",
                       "allocations, per fragment",
                       "",
                       static_cast<double>(made) / fragments,
                       {},
                       at_most(2.01)});
    figures.push_back({"session",
                       "memory kept, per fragment",
                       "B",
                       static_cast<double>(kept) / fragments,
                       {},
                       at_most(0)});
}

}  // namespace

Figures session(const Effort& effort) {
    Figures figures;
    prepare_daemon();
    const std::vector<uint8_t> image = made_up_image(effort.is_quick ? kMiB : 64 * kMiB);
    // cppcheck-suppress unreadVariable ; its files are there as long as it is
    const Firmware firmware(image, 2);
    for (const uint32_t fragment : {512u, kUsualFragment, 32768u}) {
        const Course course = {kServedImage, static_cast<uint32_t>(image.size()), fragment};
        Session ours = socket_session(course, image, Session::Server::kDaemon);
        Session bare = socket_session(course, image, Session::Server::kBareLoop);
        for (const Cores cores : {Cores::kOne, Cores::kAll}) {
            for (const log_level level : {log_level::error, log_level::verbose}) {
                measure(effort, {fragment, cores, level}, ours, bare, figures);
            }
        }
        if (fragment == kUsualFragment) {
            measure_heap(ours, figures);
        }
    }
    use_cores(Cores::kAll);
    return figures;
}

}  // namespace bench
