// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "tools/marlo_fw/bundle_files.h"
#include "tools/marlo_fw/finding.h"
#include "tools/marlo_fw/text.h"

namespace marlo_fw {
namespace {

constexpr const char* kNext = "give -o the name of a new file";

// A link would be replaced, and what it leads to would stay as it is.
void refuse_link(const std::string& path) {
    struct stat old = {};
    if (::lstat(path.c_str(), &old) == 0 && S_ISLNK(old.st_mode)) {
        throw Failure(in_quotes(path) + " is a symbolic link",
                      "give -o the file that it leads to, or the name of a new file");
    }
}

// Those of a file that is replaced, else what the caller's mask leaves.
mode_t mode_for(const std::string& path) {
    struct stat old = {};
    if (::stat(path.c_str(), &old) != 0) {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        return 0666 & ~mask;
    }
    if (was_opened(old)) throw Failure(in_quotes(path) + " is a file of the bundle", kNext);
    if (!S_ISREG(old.st_mode))
        throw Failure(in_quotes(path) + " is there and no regular file", kNext);
    return old.st_mode & 07777;
}

void hold_back_signals(sigset_t& before) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&signals, signal);
    ::sigprocmask(SIG_BLOCK, &signals, &before);
}

}  // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
    refuse_link(path_);
    const mode_t mode = mode_for(path_);
    hold_back_signals(signals_);
    ::signal(SIGXFSZ, SIG_IGN);  // a file that grows too large is an error of the write
    temporary_ = path_ + ".XXXXXX";
    fd_ = ::mkstemp(temporary_.data());
    if (fd_ < 0) {
        temporary_.clear();
        fail("be made");
    }
    if (::fchmod(fd_, mode) != 0) fail("be given its rights");
}

OutputFile::~OutputFile() {
    if (fd_ >= 0) ::close(fd_);
    if (!temporary_.empty()) ::unlink(temporary_.c_str());
    ::sigprocmask(SIG_SETMASK, &signals_, nullptr);
}

void OutputFile::write(std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(fd_, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail("be written");
        bytes = bytes.subspan(static_cast<size_t>(count));
    }
}

void OutputFile::finish() {
    if (::fsync(fd_) != 0) fail("be written");
    if (::rename(temporary_.c_str(), path_.c_str()) != 0) fail("be given its name");
    temporary_.clear();
}

void OutputFile::fail(const std::string& step) {
    const int error = errno;
    // A destructor does not run for what was not constructed.
    if (!temporary_.empty()) ::unlink(std::exchange(temporary_, "").c_str());
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
    ::sigprocmask(SIG_SETMASK, &signals_, nullptr);
    throw Failure(in_quotes(path_) + " cannot " + step + ": " + strerror(error),
                  "nothing was written; give -o a file in a directory that can be written to");
}

}  // namespace marlo_fw
