// SPDX-License-Identifier: Apache-2.0
#include "bench/temporary_directory.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace bench {

TemporaryDirectory::TemporaryDirectory(const std::filesystem::path& parent) {
    std::string name = parent / "marlo-bench-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error(name + " cannot be made: " + std::strerror(errno));
    }
    path_ = name;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace bench
