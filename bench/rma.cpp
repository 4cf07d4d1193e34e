// SPDX-License-Identifier: Apache-2.0
// Blocks of a memory partition read and written, beside the least that can be done for it.
#include <linux/magic.h>
#include <sys/vfs.h>

#include <string>

#include "bench/affinity.h"
#include "bench/block_coprocessor.h"
#include "bench/block_server.h"
#include "bench/firmware.h"
#include "bench/groups.h"
#include "bench/temporary_directory.h"
#include "daemon/marlo_deamon_log.h"

namespace bench {
namespace {

bool is_in_memory(const std::filesystem::path& path) {
    struct statfs status = {};
    return ::statfs(path.c_str(), &status) == 0 && status.f_type == TMPFS_MAGIC;
}

using Server = std::unique_ptr<BlockServer> (*)(int channel,
                                                const std::filesystem::path& directory);

// A server, and the co-processor that is served.
class Service {
  public:
    Service(Server serve, const std::filesystem::path& directory)
        : server_(serve(coprocessor_.hosts_end(), directory)) {
        coprocessor_.connect();
        coprocessor_.check();
    }
    BlockCoprocessor* operator->() { return &coprocessor_; }

  private:
    BlockCoprocessor coprocessor_;
    std::unique_ptr<BlockServer> server_;
};

// Where a sync takes its time, a few thousand blocks would take minutes.
uint32_t writes_in_a_round(const Effort& effort, bool is_synced) {
    if (is_synced) {
        return effort.is_quick ? 16 : 256;
    }
    return effort.is_quick ? 1024 : 16384;
}

void measure_in(Figures& figures, const Effort& effort, const std::filesystem::path& parent) {
    const TemporaryDirectory directory(parent);
    make_partition(directory.path());
    Service ours(serve_by_daemon, directory.path());
    Service bare(serve_barely, directory.path());
    const bool is_synced = !is_in_memory(directory.path());
    const uint32_t reads = effort.is_quick ? 1024 : 16384;
    const uint32_t writes = writes_in_a_round(effort, is_synced);
    const Pair read_rate = pair_of(
        effort, [&] { return ours->read_blocks(reads); }, [&] { return bare->read_blocks(reads); });
    const Pair write_rate = pair_of(
        effort, [&] { return ours->write_blocks(writes); },
        [&] { return bare->write_blocks(writes); });
    const std::string place = " in " + parent.string() + ", one core";
    figures.push_back({"rma", "reads of 4 KiB" + place, "blocks/s", read_rate.ours,
                       reference("bare loop", read_rate)});
    figures.push_back({"rma", (is_synced ? "synced writes" : "writes, nothing to sync,") + place,
                       "blocks/s", write_rate.ours, reference("bare loop", write_rate)});
}

}  // namespace

Figures rma(const Effort& effort) {
    Figures figures;
    prepare_daemon();
    // As the daemon runs.
    marlo_deamon_log::set_level(marlo_deamon_log::log_level::verbose);
    use_cores(Cores::kOne);
    for (const char* parent : {"/dev/shm", "/var/tmp"}) {
        measure_in(figures, effort, parent);
    }
    use_cores(Cores::kAll);
    return figures;
}

}  // namespace bench
