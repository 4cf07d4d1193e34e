// SPDX-License-Identifier: Apache-2.0
#include "sweep/soak.h"

#include <algorithm>
#include <ostream>

#include "sweep/process.h"

namespace sweep {
namespace {

void print(const char* when, const Usage& usage, std::ostream& out) {
    out << when << usage.restarts << " restarts: " << usage.allocated_bytes << " bytes allocated, "
        << usage.resident_bytes / 1024 << " KiB resident, " << usage.threads << " threads, "
        << usage.descriptors << " descriptors\n";
}

}  // namespace

bool soak(const DeviceSetup& device, uint32_t restarts, std::ostream& out) {
    LifeSetup setup{&device};
    setup.restarts = restarts;
    const Life life = live_in_process(setup);
    if (life.end != "quiet" || life.usage.size() < 2 || !life.failures.empty()) {
        out << "FAIL soak: " << life.end << (life.failures.empty() ? "" : ", ")
            << (life.failures.empty() ? "" : life.failures.front()) << std::endl;
        return false;
    }
    const Usage& first = life.usage.front();
    const Usage& last = life.usage.back();
    print("after ", first, out);
    print("after ", last, out);
    const bool is_steady = last.threads == first.threads && last.descriptors == first.descriptors &&
                           last.allocated_bytes <= first.allocated_bytes + kSoakGrowthBytes;
    out << (is_steady ? "PASS" : "FAIL") << " soak: " << device.scenario->name << ", "
        << last.restarts << " restarts in " << life.seconds << " s of its time" << std::endl;
    return is_steady;
}

}  // namespace sweep
