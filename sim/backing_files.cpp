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

// Empty: it is as it must be.
std::string file_difference(const fs::path& file, const Bytes& expected) {
    const std::string name = "backing file " + file.filename().string();
    if (!fs::is_regular_file(file)) return name + " is not there";
    std::ifstream stream(file, std::ios::binary);
    const std::string content =
        content_difference(expected, Bytes(std::istreambuf_iterator<char>(stream), {}));
    return content.empty() ? "" : name + ": " + content;
}

}  // namespace

std::string difference(const fs::path& directory, const BackingFiles& expected) {
    for (const auto& [name, bytes] : expected) {
        std::string wrong = file_difference(directory / name, bytes);
        if (!wrong.empty()) return wrong;
    }
    for (const auto& entry : fs::directory_iterator(directory)) {
        const std::string name = entry.path().filename();
        if (expected.count(name) == 0) return "among the backing files is one too many: " + name;
    }
    return "";
}

}  // namespace sim
