// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/link_check.h"

#include <deque>
#include <filesystem>

#include "tools/marlo_fw/text.h"

namespace fs = std::filesystem;

namespace marlo_fw {
namespace {

constexpr int kMostLinks = 40;  // as many as Linux follows

struct Link {
    fs::path from;  // below the directory
    fs::path target;
};

// The first link that leaves the directory; empty where none does.
Link leaving_link(const fs::path& directory, const fs::path& file) {
    std::deque<fs::path> steps(file.begin(), file.end());
    fs::path reached;  // below the directory
    Link last;
    for (int links = 0; !steps.empty() && links < kMostLinks;) {
        const fs::path step = steps.front();
        steps.pop_front();
        if (step == "..") {
            if (reached.empty()) return last;
            reached = reached.parent_path();
            continue;
        }
        if (step.empty() || step == "." || step == "/") continue;
        std::error_code is_none;
        const fs::path target = fs::read_symlink(directory / reached / step, is_none);
        if (is_none) {
            reached /= step;
            continue;
        }
        ++links;
        last = {reached / step, target};
        if (target.is_absolute()) return last;
        steps.insert(steps.begin(), target.begin(), target.end());
    }
    return {};
}

}  // namespace

void check_links(const std::string& directory, const std::string& file, Area area,
                 const std::string& place, Findings& findings) {
    const Link link = leaving_link(directory, file);
    if (link.from.empty()) return;
    findings.add(
        {area,
         "link-leads-elsewhere",
         place,
         in_quotes(link.from.string()) + " is a link to " + in_quotes(link.target.string()),
         "on the device it leads to another file, or to none",
         {}});
}

}  // namespace marlo_fw
