// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

#include "bench/held_signals.h"

namespace bench {

// A directory of its own, removed with all that is in it at destruction, signals or not.
class TemporaryDirectory {
  public:
    // Below `parent`. Throws std::runtime_error where it cannot be made.
    explicit TemporaryDirectory(
        const std::filesystem::path& parent = std::filesystem::temp_directory_path());
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    HeldSignals signals_;  // before the directory is there, until it is gone
    std::filesystem::path path_;
};

}  // namespace bench
