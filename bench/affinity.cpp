// SPDX-License-Identifier: Apache-2.0
#include "bench/affinity.h"

#include <sched.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace bench {
namespace {

cpu_set_t cores_at_start() {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    if (::sched_getaffinity(0, sizeof(cores), &cores) != 0) {
        throw std::runtime_error(std::string("no affinity: ") + std::strerror(errno));
    }
    return cores;
}

// The last one: the first has the most interrupts to serve.
cpu_set_t last_of(const cpu_set_t& cores) {
    int last = 0;
    for (int core = 0; core < CPU_SETSIZE; ++core) {
        last = CPU_ISSET(core, &cores) ? core : last;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(last, &one);
    return one;
}

}  // namespace

void use_cores(Cores cores) {
    static const cpu_set_t all = cores_at_start();
    const cpu_set_t wanted = cores == Cores::kAll ? all : last_of(all);
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        const int thread = std::stoi(task.path().filename());
        if (::sched_setaffinity(thread, sizeof(wanted), &wanted) != 0 && errno != ESRCH) {
            throw std::runtime_error(std::string("no affinity: ") + std::strerror(errno));
        }
    }
}

}  // namespace bench
