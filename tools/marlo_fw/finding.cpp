// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/finding.h"

#include <utility>

namespace marlo_fw {

const char* area_name(Area area) {
    switch (area) {
        case Area::kTable:
            return "table";
        case Area::kImage:
            return "image";
        case Area::kFlashImage:
            return "flash-image";
        case Area::kVersions:
            return "versions";
        case Area::kPlatform:
            return "platform";
    }
    return "";
}

void Findings::add(Finding finding) {
    ++total_;
    if (kept_of_[finding.area]++ < kMostKept) kept_.push_back(std::move(finding));
}

std::vector<std::string> complaints(const std::vector<LogLine>& log) {
    std::vector<std::string> texts;
    for (const LogLine& line : log) {
        if (is_complaint(line)) texts.push_back(line.text);
    }
    return texts;
}

}  // namespace marlo_fw
