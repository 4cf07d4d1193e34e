// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace sweep {

using Bytes = std::vector<uint8_t>;

// The file system of the simulated device, in memory. Results are those of the kernel: 0 or more,
// or a negated errno. A file that is open outlives its name.
class MemoryFiles {
  public:
    struct File {
        Bytes bytes;
        uint32_t mode;  // as in st_mode
    };

    // Both replace what has the name. Without its directory a path cannot be made by open().
    void add_directory(const std::string& path);
    void add(const std::string& path, Bytes bytes);

    // Null with *error set where it cannot be opened.
    std::shared_ptr<File> open(const std::string& path, int flags, uint32_t mode, int* error);
    int rename(const std::string& from, const std::string& to);  // replaces nothing
    int unlink(const std::string& path);

    // Null: no such file.
    std::shared_ptr<const File> find(const std::string& path) const;
    // Name without the directory -> contents, of all regular files in it.
    std::map<std::string, Bytes> in_directory(const std::string& directory) const;

  private:
    std::map<std::string, std::shared_ptr<File>> files_;
};

}  // namespace sweep
