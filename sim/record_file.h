// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <fstream>
#include <string_view>

namespace sim {

// A file that an option asks for. What was in it before is lost with the first bytes that are
// written, not before: a run that cannot even begin takes nothing away, and leaves no new file.
class RecordFile {
  public:
    // `what`: in words; `option`: what to give another file. Throws RecordError if the file cannot
    // be opened for writing.
    RecordFile(const char* what, const char* option, const std::filesystem::path& file);
    ~RecordFile();
    RecordFile(const RecordFile&) = delete;
    RecordFile& operator=(const RecordFile&) = delete;

    // The first error counts, and is told by close().
    void write(std::string_view bytes);
    void flush();  // whoever looks on finds what was written
    // Throws RecordError if anything could not be written.
    void close();

  private:
    void note_error();
    void tell_error() const;

    const char* what_;
    const char* option_;
    std::filesystem::path path_;
    bool is_new_;
    std::ofstream stream_;
    bool has_begun_ = false;  // to be written
    int error_ = 0;
};

}  // namespace sim
