// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

// The root prefix: where the environment variable MARLO_ROOT is set (and the process has not
// gained privileges by being executed), every absolute path that the daemon opens is looked up
// below that directory. Log lines still name the path without it.
namespace os {

// The prefix without a trailing slash; empty for the real root. Read once.
const std::string& root_prefix();

// `path` below the prefix. Relative paths stay as they are.
std::string under_root(const char* path);

}  // namespace os
