// SPDX-License-Identifier: Apache-2.0
#include "sweep/process.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace sweep {
namespace {

// Of real time: no life takes a tenth of it.
constexpr unsigned kHangsAfterSeconds = 60;

std::string record_of(const Life& life) {
    nlohmann::json fields = {
        {"end", life.end},
        {"states", life.states},
        {"failures", life.failures},
        {"late", life.late_failures},
        {"lies", life.lies},
        {"complaints", life.complaints},
        {"occasions", life.occasions},
        {"struck", life.struck_at ? nlohmann::json(*life.struck_at) : nlohmann::json()},
        {"may_abort", life.may_abort},
        {"must_abort", life.must_abort},
        {"log_lines", life.log_lines},
        {"polls", life.polls},
        {"progress", life.progress},
        {"seconds", life.seconds},
        {"usage", nlohmann::json::array()}};
    for (const Usage& usage : life.usage) {
        fields["usage"].push_back({usage.restarts, usage.allocated_bytes, usage.resident_bytes,
                                   usage.threads, usage.descriptors});
    }
    const std::string text = fields.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
    return text + '\n' + packed(life.trace);
}

Life life_from(const std::string& record) {
    const size_t line = record.find('\n');
    const auto fields = nlohmann::json::parse(record.substr(0, line));
    Life life;
    fields.at("end").get_to(life.end);
    fields.at("states").get_to(life.states);
    fields.at("failures").get_to(life.failures);
    fields.at("late").get_to(life.late_failures);
    fields.at("lies").get_to(life.lies);
    fields.at("complaints").get_to(life.complaints);
    fields.at("occasions").get_to(life.occasions);
    if (fields.at("struck").is_string()) life.struck_at = fields.at("struck");
    fields.at("may_abort").get_to(life.may_abort);
    fields.at("must_abort").get_to(life.must_abort);
    fields.at("log_lines").get_to(life.log_lines);
    fields.at("polls").get_to(life.polls);
    fields.at("progress").get_to(life.progress);
    fields.at("seconds").get_to(life.seconds);
    for (const auto& usage : fields.at("usage")) {
        life.usage.push_back({usage[0], usage[1], usage[2], usage[3], usage[4]});
    }
    life.trace = unpacked(record.substr(line + 1));
    return life;
}

[[noreturn]] void live(const LifeSetup& setup, int record) {
    if (setup.restarts == 0) alarm(kHangsAfterSeconds);
    auto* const simulation = new Simulation(setup);
    set_simulation(simulation);
    simulation->live([record](const Life& life) {
        const std::string bytes = record_of(life);
        for (size_t done = 0; done < bytes.size();) {
            const ssize_t count = write(record, bytes.data() + done, bytes.size() - done);
            if (count <= 0) _exit(1);
            done += static_cast<size_t>(count);
        }
        _exit(0);
    });
}

std::string contents_of(int file) {
    std::string bytes(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count =
            pread(file, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (count <= 0) break;
        done += static_cast<size_t>(count);
    }
    bytes.resize(done);
    return bytes;
}

}  // namespace

Life live_in_process(const LifeSetup& setup) {
    const int record = memfd_create("life", MFD_CLOEXEC);
    const pid_t child = fork();
    if (record < 0 || child < 0) throw std::runtime_error("no process for a run of the daemon");
    if (child == 0) live(setup, record);
    int status = 0;
    waitpid(child, &status, 0);
    const std::string bytes = contents_of(record);
    close(record);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return life_from(bytes);
    Life life;
    life.end = "crashed: exit " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status)) life.end = "crashed: signal " + std::to_string(WTERMSIG(status));
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) life.end = "hangs";
    return life;
}

}  // namespace sweep
