// SPDX-License-Identifier: Apache-2.0
// Texts for people.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace marlo_fw {

// What cannot be printed, and what is no ASCII, as \xNN; cut where it is longer than `most`.
std::string printable(std::string_view text, size_t most = 120);
// The same between quotation marks.
std::string in_quotes(std::string_view text);

std::string hexadecimal(uint64_t number);
std::string count_of(uint64_t number, const std::string& what);  // "1 file", "2 files"

// One text behind the other, in between.
std::string join(const std::vector<std::string>& texts, std::string_view between);

}  // namespace marlo_fw
