// SPDX-License-Identifier: Apache-2.0
#include "sim/version_text.h"

#include <optional>
#include <sstream>

namespace sim {

namespace {

constexpr size_t kMaxLine = 65536;  // the search below is quadratic at worst
constexpr size_t kNone = std::string::npos;

// The value that begins at `start`: up to the last quote before an ampersand, or up to an ampersand
// directly before a quote.
std::optional<std::string> value_from(const std::string& line, size_t start) {
    const size_t ampersand = line.find('&', start);
    if (ampersand != kNone && line.compare(ampersand, 2, "&\"") == 0) {
        return line.substr(start, ampersand - start);
    }
    const size_t end = ampersand == kNone ? line.size() : ampersand;
    const size_t quote = end > start ? line.rfind('"', end - 1) : kNone;
    if (quote == kNone || quote < start) return {};
    return line.substr(start, quote - start);
}

// The leftmost quote from which a key without equals sign leads to a value; from it the last
// `": "` that does.
std::optional<std::string> value_in(const std::string& line) {
    const std::string separator = "\": \"";
    for (size_t open = line.find('"'); open != kNone; open = line.find('"', open + 1)) {
        const size_t equals = line.find('=', open + 1);
        size_t at = line.rfind(separator, equals == kNone ? kNone : equals);
        while (at != kNone && at > open) {
            if (auto value = value_from(line, at + separator.size())) return value;
            at = line.rfind(separator, at - 1);
        }
    }
    return {};
}

}  // namespace

ShippedVersions read_versions(const std::string& text, const std::string& file) {
    ShippedVersions versions;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.size() > kMaxLine) {
            throw FirmwareError(file + ": a line of " + std::to_string(line.size()) +
                                " bytes, more than " + std::to_string(kMaxLine));
        }
        const std::optional<std::string> value = value_in(line);
        if (!value) continue;
        if (line.find("apps_cochip") != kNone) versions.apps = *value;
        if (line.find("btfw_cochip") != kNone) versions.bt = *value;
        if (line.find("dsp_cochip") != kNone) versions.dsp = *value;
    }
    return versions;
}

}  // namespace sim
