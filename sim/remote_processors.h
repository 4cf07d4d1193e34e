// SPDX-License-Identifier: Apache-2.0
// The processors of the chip as the kernel's remoteproc class lists them. Those of others are there
// so that a host that takes the first one, or the state of another one, is found out.
#pragma once

namespace sim {

struct RemoteProcessor {
    const char* directory;  // in class/remoteproc
    const char* name;       // what its file "name" says
    const char* state;      // what its file "state" says; null: that of the co-processor
};

inline constexpr RemoteProcessor kRemoteProcessors[] = {
    {"remoteproc0", "4080000.remoteproc-mss\n", "running\n"},
    {"remoteproc1", "soc:zeno,rproc-audio\n", "offline\n"},
    {"remoteproc2", "soc:zeno,rproc-marlo\n", nullptr},
    {"remoteproc3", "a400000.remoteproc-cdsp\n", "offline\n"},
};

}  // namespace sim
