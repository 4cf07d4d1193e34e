// SPDX-License-Identifier: Apache-2.0
#include "sim/backing_files.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace sim {
namespace {

std::string content_difference(const Bytes& expected, const Bytes& got) {
    if (got.size() != expected.size()) {
        return "has " + std::to_string(got.size()) + " bytes, not " +
               std::to_string(expected.size());
    }
    const auto [wanted, found] = std::mismatch(expected.begin(), expected.end(), got.begin());
    if (wanted == expected.end()) return "";
    return "byte " + std::to_string(wanted - expected.begin()) + " is " + std::to_string(*found) +
           ", not " + std::to_string(*wanted);
}

}  // namespace

std::string difference(const fs::path& directory, const BackingFiles& expected) {
    for (const auto& [name, bytes] : expected) {
        const std::string file = "backing file " + name;
        if (!fs::is_regular_file(directory / name)) return file + " is not there";
        std::ifstream stream(directory / name, std::ios::binary);
        const std::string content =
            content_difference(bytes, Bytes(std::istreambuf_iterator<char>(stream), {}));
        if (!content.empty()) return file + ": " + content;
    }
    for (const auto& entry : fs::directory_iterator(directory)) {
        const std::string name = entry.path().filename();
        if (expected.count(name) == 0) return "among the backing files is one too many: " + name;
    }
    return "";
}

}  // namespace sim
