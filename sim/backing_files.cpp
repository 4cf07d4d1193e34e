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

std::string words_for(const fs::path& file) {
    return "backing file " + file.filename().string();
}

// Empty: it is as it must be.
std::string file_difference(const fs::path& file, const Bytes& expected) {
    if (!fs::is_regular_file(file)) return words_for(file) + " is not there";
    const std::string content = content_difference(expected, content_of(file));
    return content.empty() ? "" : words_for(file) + ": " + content;
}

bool is_number(const std::string& name) {
    return name.find_first_not_of("0123456789") == std::string::npos;
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

std::string loss(const fs::path& directory, const std::set<std::string>& acknowledged,
                 const BackingFiles& before, const BackingFiles& after) {
    for (const std::string& name : acknowledged) {
        if (!fs::exists(directory / name)) return words_for(directory / name) + " is not there";
    }
    for (const auto& entry : fs::directory_iterator(directory)) {
        const std::string name = entry.path().filename();
        if (!is_number(name)) continue;
        if (before.count(name) == 0) return "among the backing files is one too many: " + name;
        Bytes expected = before.at(name);
        const Bytes& ahead = after.at(name);
        const Bytes got = content_of(entry.path());
        for (size_t i = 0; i < std::min(got.size(), expected.size()); ++i) {
            if (got[i] == ahead[i]) expected[i] = got[i];
        }
        const std::string content = content_difference(expected, got);
        if (!content.empty()) return words_for(entry.path()) + ": " + content;
    }
    return "";
}

Bytes content_of(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(stream), {});
}

}  // namespace sim
