// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>

// The files that hold the co-processor's memory partitions: how they are named and made, and one
// of them opened. Nothing is logged here; failures leave errno. Used on the reader thread of the
// RMA channel, one at a time.

// Where they are. Whoever installs the daemon makes the directory, or a link to one (init on
// Android, the service on Linux): to make it here would take the right to write next to it.
inline constexpr const char* backing_file_directory = "/data/vendor/aon/";

// Name of a file in it: the three numbers one after the other, "12" "0" "7" -> "1207".
std::string backing_file_name(uint32_t first, uint32_t second, uint32_t third);

enum class Creation {
    exists,       // a file of that name was there, whatever it holds: it is left as it is
    created,      // whole, and on the disk
    not_opened,   // no file could be opened, or nobody knows whether there is one
    no_memory,    // for the zeros
    not_written,  // the zeros, or the name, did not get to the disk
};

// Makes `path` a file of `size` zeros, unless it exists. The name appears only once the contents
// are on the disk, so that a power cut leaves no file or a whole one; so does every failure.
Creation create_backing_file(const std::string& path, uint32_t size);

// True once the names of all files are on the disk.
bool sync_backing_directory();

class BackingFile {
  public:
    // `access` is O_RDONLY or O_RDWR. Not open afterwards unless `path` is a regular file itself:
    // no link is followed.
    BackingFile(const std::string& path, int access);
    ~BackingFile();
    BackingFile(const BackingFile&) = delete;
    BackingFile& operator=(const BackingFile&) = delete;

    bool is_open() const { return fd_ >= 0; }
    // Whether all of this range is inside the file.
    bool contains(uint32_t offset, uint32_t size) const;
    // Fills `into` as far as the file goes; what lies behind its end stays as it was.
    bool read(uint32_t offset, std::span<uint8_t> into) const;
    // True once the bytes are on the disk.
    bool write(uint32_t offset, const char* data, uint32_t size) const;

  private:
    int fd_ = -1;
    uint64_t size_ = 0;
};
