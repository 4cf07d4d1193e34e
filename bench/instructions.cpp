// SPDX-License-Identifier: Apache-2.0
// How many instructions a fragment takes, outside the kernel. Counted by Valgrind, which repeats to
// the instruction: twice as many fragments less once as many.
#include "bench/instructions.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "bench/channel_open.h"
#include "bench/child_process.h"
#include "bench/firmware.h"
#include "bench/fragment_server.h"
#include "bench/groups.h"
#include "daemon/marlo_deamon_log.h"

namespace bench {
namespace {

constexpr char kReady[] = {'R'};
constexpr uint32_t kImageBytes = 1024 * 1024;

// What the log says after "Collected :".
double collected(const std::filesystem::path& log) {
    std::ifstream file(log);
    for (std::string line; std::getline(file, line);) {
        const size_t label = line.find("Collected : ");
        if (label != std::string::npos) {
            return std::stod(line.substr(label + std::strlen("Collected : ")));
        }
    }
    throw std::runtime_error("valgrind has counted nothing");
}

double instructions_for(const std::string& server, int log_level, uint32_t fragment_bytes,
                        uint64_t fragments) {
    SocketCoprocessor coprocessor({kServedImage, kImageBytes, fragment_bytes});
    const TemporaryDirectory directory;
    const std::filesystem::path log = directory.path() / "log";
    std::optional<Pipe> end_signal = make_pipe();
    ChildProcess child(
        {"valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
         "--log-file=" + log.string(), std::filesystem::read_symlink("/proc/self/exe"), "--serve",
         server, "--serve-log-level", std::to_string(log_level)},
        {coprocessor.hosts_end(), end_signal->output.get()});
    coprocessor.release_hosts_end();
    coprocessor.await_server();
    coprocessor.ask_for(fragments);
    end_signal.reset();
    child.finish();
    return collected(log);
}

double instructions_per_fragment(const std::string& server, int log_level,
                                 uint32_t fragment_bytes) {
    constexpr uint64_t kFragments = 1000;
    return (instructions_for(server, log_level, fragment_bytes, 2 * kFragments) -
            instructions_for(server, log_level, fragment_bytes, kFragments)) /
           kFragments;
}

}  // namespace

int serve_standard_input(const char* server, int log_level) {
    prepare_daemon();
    const std::vector<uint8_t> image = made_up_image(kImageBytes);
    std::unique_ptr<FragmentServer> serving;
    if (std::strcmp(server, "bare") == 0) {
        serving = std::make_unique<BareLoop>(STDIN_FILENO, image);
    } else {
        // cppcheck-suppress unreadVariable ; its files are there as long as it is
        const Firmware firmware(image, 2);
        offer_channel(kDfuChannel, STDIN_FILENO);
        serving = std::make_unique<DaemonServer>();
        marlo_deamon_log::set_level(static_cast<marlo_deamon_log::log_level>(log_level));
    }
    if (::write(STDIN_FILENO, kReady, sizeof(kReady)) < 0) {
        throw std::runtime_error(std::string("standard input is no channel: ") +
                                 std::strerror(errno));
    }
    pollfd end = {STDOUT_FILENO, POLLIN, 0};
    ::poll(&end, 1, -1);
    return 0;
}

Figures instructions(const Effort& effort) {
    Figures figures;
    for (const uint32_t fragment : {512u, 4096u, 32768u}) {
        if (effort.is_quick && fragment != 4096) {
            continue;
        }
        const double bare = instructions_per_fragment("bare", 1, fragment);
        for (const int level : {1, 4}) {
            const double ours = instructions_per_fragment("daemon", level, fragment);
            figures.push_back({"instructions",
                               "a fragment of " + std::to_string(fragment) + " B, log level " +
                                   std::to_string(level),
                               "", ours, Reference{"bare loop", bare, ours / bare}});
        }
    }
    return figures;
}

}  // namespace bench
