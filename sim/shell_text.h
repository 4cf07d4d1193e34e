// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace sim {

// As a shell takes it back, whatever is in it.
std::string shell_quoted(const std::string& text);

// The same, but plain where a shell takes it plain.
std::string shell_word(const std::string& text);

}  // namespace sim
