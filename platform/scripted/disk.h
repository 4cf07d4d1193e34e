// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

// What a power cut leaves of the scripted platform's files. A disk is told of every change and of
// every sync; what was not synced by the time of the cut is there, torn or lost at random.
namespace scripted {

using Bytes = std::vector<uint8_t>;

struct DiskChange {
    enum class Kind {
        created,    // an empty file, as `path`
        truncated,  // the file, to no bytes
        written,    // `bytes` into the file, to `offset`
        synced,     // the file; where it is a directory, the names in it
        renamed,    // the file, from `path` to `new_path`
        unlinked,   // `path`
    };
    Kind kind;
    int file = 0;  // tells files apart, whatever names they have
    std::string path;
    std::string new_path = {};
    size_t offset = 0;
    Bytes bytes = {};
};

using DiskObserver = std::function<void(const DiskChange&)>;

// One directory and its files. The rules are those on which a program can rely, not those of some
// file system: without a sync, the contents, the sizes and the names of files reach the disk in any
// order or not at all; of a write, each sector does so by itself, or a part of it; where a size
// arrives before the bytes, there is what the disk held before. A change of a name is whole.
class Disk {
  public:
    explicit Disk(std::string directory);  // without a trailing slash

    void apply(const DiskChange& change);
    // Syncs everything.
    void settle();
    // The files, by path, as a restart may find them.
    std::map<std::string, Bytes> after_power_cut(std::mt19937& random) const;

  private:
    struct File {
        Bytes on_disk;
        std::vector<DiskChange> unsynced;
    };
    using Names = std::map<std::string, int>;

    bool is_directory(const std::string& path) const;
    static void change_names(Names& names, const DiskChange& change);
    static Bytes contents(const File& file, std::mt19937* random);

    std::string directory_;
    std::map<int, File> files_;
    Names names_;
    std::vector<DiskChange> unsynced_names_;
};

}  // namespace scripted
