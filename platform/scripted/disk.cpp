// SPDX-License-Identifier: Apache-2.0
#include "platform/scripted/disk.h"

#include <algorithm>
#include <utility>

namespace scripted {
namespace {

constexpr size_t kSectorBytes = 512;

// What is in sectors that were never written.
constexpr uint8_t kOldByte = 0xEE;

// How a cut treats what was not synced: all of it survives, none of it, or each piece decides.
enum class Fate { all, none, some };

Fate fate(std::mt19937* random) {
    const uint32_t draw = random == nullptr ? 0 : (*random)() % 8;
    return draw == 0 ? Fate::all : draw == 1 ? Fate::none : Fate::some;
}

bool survives(Fate fate, std::mt19937* random) {
    return fate == Fate::all || (fate == Fate::some && (*random)() % 2 == 0);
}

void grow(Bytes& contents, size_t size) {
    contents.resize(std::max(contents.size(), size), kOldByte);
}

// Of one sector's bytes of a write, those from `begin` to `end`.
void write_sector(Bytes& contents, const DiskChange& write, size_t begin, size_t end, Fate fate,
                  std::mt19937* random) {
    if (!survives(fate, random)) {
        return;
    }
    if (fate == Fate::some && (*random)() % 4 == 0) {
        end = begin + (*random)() % (end - begin);  // torn
    }
    grow(contents, write.offset + end);
    std::copy(write.bytes.begin() + static_cast<ptrdiff_t>(begin),
              write.bytes.begin() + static_cast<ptrdiff_t>(end),
              contents.begin() + static_cast<ptrdiff_t>(write.offset + begin));
}

}  // namespace

Disk::Disk(std::string directory) : directory_(std::move(directory)) {}

bool Disk::is_directory(const std::string& path) const {
    return path == directory_ || path == directory_ + "/";
}

void Disk::apply(const DiskChange& change) {
    switch (change.kind) {
        case DiskChange::Kind::created:
            files_[change.file];
            unsynced_names_.push_back(change);
            return;
        case DiskChange::Kind::renamed:
        case DiskChange::Kind::unlinked:
            unsynced_names_.push_back(change);
            return;
        case DiskChange::Kind::truncated:
        case DiskChange::Kind::written:
            files_[change.file].unsynced.push_back(change);
            return;
        case DiskChange::Kind::synced:
            if (is_directory(change.path)) {
                for (const DiskChange& name : std::exchange(unsynced_names_, {})) {
                    change_names(names_, name);
                }
                return;
            }
            File& file = files_[change.file];
            file.on_disk = contents(file, nullptr);
            file.unsynced.clear();
            return;
    }
}

void Disk::settle() {
    for (auto& [id, file] : files_) {
        file = {contents(file, nullptr), {}};
    }
    apply({.kind = DiskChange::Kind::synced, .path = directory_});
}

void Disk::change_names(Names& names, const DiskChange& change) {
    if (change.kind != DiskChange::Kind::created) {
        names.erase(change.path);
    }
    if (change.kind != DiskChange::Kind::unlinked) {
        const bool is_new = change.kind == DiskChange::Kind::created;
        names[is_new ? change.path : change.new_path] = change.file;
    }
}

// With everything that was not synced where `random` is null.
Bytes Disk::contents(const File& file, std::mt19937* random) {
    Bytes bytes = file.on_disk;
    const Fate of_file = file.unsynced.empty() ? Fate::all : fate(random);
    for (const DiskChange& change : file.unsynced) {
        const bool has_size = survives(of_file, random);
        if (change.kind == DiskChange::Kind::truncated) {
            bytes.resize(has_size ? 0 : bytes.size());
            continue;
        }
        if (has_size) {
            grow(bytes, change.offset + change.bytes.size());
        }
        for (size_t begin = 0; begin < change.bytes.size();) {
            const size_t in_sector = kSectorBytes - (change.offset + begin) % kSectorBytes;
            const size_t end = std::min(begin + in_sector, change.bytes.size());
            write_sector(bytes, change, begin, end, of_file, random);
            begin = end;
        }
    }
    return bytes;
}

std::map<std::string, Bytes> Disk::after_power_cut(std::mt19937& random) const {
    Names names = names_;
    const Fate of_names = unsynced_names_.empty() ? Fate::all : fate(&random);
    for (const DiskChange& change : unsynced_names_) {
        if (survives(of_names, &random)) {
            change_names(names, change);
        }
    }
    std::map<std::string, Bytes> survivors;
    for (const auto& [name, file] : names) {
        survivors[name] = contents(files_.at(file), &random);
    }
    return survivors;
}

}  // namespace scripted
