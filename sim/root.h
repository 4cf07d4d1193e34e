// SPDX-License-Identifier: Apache-2.0
// The directory tree handed to the daemon as MARLO_ROOT.
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

namespace sim {

// A directory that cannot or must not be used; what() names it.
class RootError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Takes possession at construction, by a lock that the kernel drops however the process ends, and
// removes what it made at destruction. By then nothing must be mounted below it by this process.
class Root {
  public:
    // Without `requested`: a new directory "marlo-sim-XXXXXX" in the directory for temporary files.
    // Otherwise that one, if it does not exist, is empty, or is one that a Root made before; what
    // the one before left in it is removed. `keep`: the files outlive the session. Throws
    // RootError.
    Root(const std::optional<std::filesystem::path>& requested, bool keep);
    ~Root();
    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;

    const std::filesystem::path& path() const { return path_; }  // absolute, without links
    std::filesystem::path firmware_directory() const { return path_ / "vendor/firmware_mnt"; }
    std::filesystem::path bt_firmware_directory() const { return path_ / "vendor/bt_firmware"; }
    // Where the daemon keeps the co-processor's memory partitions.
    std::filesystem::path backing_directory() const { return path_ / "data/vendor/aon"; }

    // Removes the roots in the directory for temporary files that a killed process of this user
    // left behind, and detaches their dead mounts.
    static void sweep();
    // The same with one root, wherever it is.
    static void remove_left_over(const std::filesystem::path& root);

  private:
    void make_own_directory();
    void take(const std::filesystem::path& requested);
    void lock_new_marker();
    void make_directories();
    void remove_contents();

    std::filesystem::path path_;
    bool keep_;
    bool created_ = false;  // the directory itself did not exist before
    int marker_ = -1;       // open and locked as long as this object lives
};

}  // namespace sim
