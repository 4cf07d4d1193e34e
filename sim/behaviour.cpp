// SPDX-License-Identifier: Apache-2.0
#include "sim/behaviour.h"

namespace sim {

std::string boot_mode_name(int mode) {
    if (mode == kHostMode) return "HOST";
    if (mode == kFlashMode) return "FLASH";
    return std::to_string(mode);
}

const char* fault_name(Fault fault) {
    switch (fault) {
        case Fault::kFlashFirmwareDamaged:
            return "flash-firmware-damaged";
        case Fault::kFlashLoadFails:
            return "flash-load-fails";
        case Fault::kLoadFails:
            return "load-fails";
        case Fault::kEraseFails:
            return "erase-fails";
        case Fault::kVersionQueryFails:
            return "version-query-fails";
    }
    return "?";
}

const std::vector<Fault>& all_faults() {
    static const std::vector<Fault> faults = {Fault::kFlashFirmwareDamaged, Fault::kFlashLoadFails,
                                              Fault::kLoadFails, Fault::kEraseFails,
                                              Fault::kVersionQueryFails};
    return faults;
}

std::optional<Fault> find_fault(std::string_view name) {
    for (Fault fault : all_faults()) {
        if (name == fault_name(fault)) return fault;
    }
    return std::nullopt;
}

}  // namespace sim
