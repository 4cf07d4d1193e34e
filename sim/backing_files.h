// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <set>
#include <string>

#include "sim/coprocessor.h"

namespace sim {

// How the files of a directory differ from what they must be: each of `expected` with exactly its
// bytes, and nothing else beside them. Empty: not at all.
std::string difference(const std::filesystem::path& directory, const BackingFiles& expected);

// What is lost or broken there after the host was killed: the files that it has `acknowledged` must
// be there; each partition must be whole, and have at each byte what it had `before` the write that
// was under way or what it has `after` it. A file whose name is no number is none of the
// co-processor's and may have been left. Empty: nothing.
std::string loss(const std::filesystem::path& directory, const std::set<std::string>& acknowledged,
                 const BackingFiles& before, const BackingFiles& after);

Bytes content_of(const std::filesystem::path& file);  // empty if it cannot be read

}  // namespace sim
