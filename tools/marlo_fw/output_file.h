// SPDX-License-Identifier: Apache-2.0
// A file that is there whole or not at all.
#pragma once

#include <csignal>
#include <cstdint>
#include <span>
#include <string>

namespace marlo_fw {

// Written beside `path` under another name, and given its own in the end; signals that would end
// the process meanwhile are held back. Throws Failure, also where `path` is none that may be
// replaced: no regular file, a link to one, or one that the daemon reads.
class OutputFile {
  public:
    explicit OutputFile(std::string path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(std::span<const uint8_t> bytes);
    void finish();

  private:
    [[noreturn]] void fail(const std::string& step);

    std::string path_;
    std::string temporary_;
    int fd_ = -1;
    sigset_t signals_ = {};  // that were held back before
};

}  // namespace marlo_fw
