// SPDX-License-Identifier: Apache-2.0
// The daemon's properties: one small file each below ROOT/run/marlo/properties, or below
// ROOT/var/lib/marlo/properties for names that begin with "persist.".
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "sim/scenario.h"

namespace sim {

class PropertyFiles {
  public:
    // Makes the directories and starts to watch them. Throws std::system_error.
    explicit PropertyFiles(const std::filesystem::path& root);
    ~PropertyFiles();
    PropertyFiles(const PropertyFiles&) = delete;
    PropertyFiles& operator=(const PropertyFiles&) = delete;

    // Throws std::runtime_error if the file cannot be written.
    void set(const std::string& name, const std::string& value);

    int descriptor() const { return watch_; }  // readable when something has been written
    // What has been written since the last call, by whomever, in order. The value is the one that
    // the file has now.
    std::vector<PropertyChange> take_changes();

  private:
    std::filesystem::path path_of(const std::string& name) const;

    std::filesystem::path root_;
    int watch_;
};

}  // namespace sim
