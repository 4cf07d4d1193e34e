// SPDX-License-Identifier: Apache-2.0
#include "sim/record_file.h"

#include <cerrno>
#include <cstring>

#include "sim/recorder.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

bool is_there(const fs::path& file) {
    std::error_code ignored;
    return fs::exists(file, ignored);
}

}  // namespace

RecordFile::RecordFile(const char* what, const char* option, const fs::path& file)
    : what_(what),
      option_(option),
      path_(file),
      is_new_(!is_there(file)),
      stream_(file, std::ios::binary | std::ios::app) {
    note_error();
    tell_error();
}

RecordFile::~RecordFile() {
    std::error_code ignored;
    if (is_new_ && !has_begun_) fs::remove(path_, ignored);
}

void RecordFile::write(std::string_view bytes) {
    errno = 0;
    std::error_code ignored;
    // A device or a pipe has nothing to lose.
    if (!has_begun_ && fs::is_regular_file(path_, ignored)) {
        std::error_code error;
        fs::resize_file(path_, 0, error);
        if (error && error_ == 0) error_ = error.value();
    }
    has_begun_ = true;
    stream_ << bytes;
    note_error();
}

void RecordFile::flush() {
    errno = 0;
    stream_.flush();
    note_error();
}

void RecordFile::close() {
    if (!has_begun_) write({});
    errno = 0;
    stream_.close();
    note_error();
    tell_error();
}

void RecordFile::note_error() {
    if (!stream_ && error_ == 0) error_ = errno ? errno : EIO;
}

void RecordFile::tell_error() const {
    if (error_ == 0) return;
    throw RecordError(
        what_, path_,
        std::string(": ") + std::strerror(error_) + "; give " + option_ + " another file");
}

}  // namespace sim
