// SPDX-License-Identifier: Apache-2.0
#include "sim/root.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "sim/stale_mounts.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

constexpr const char* kPrefix = "marlo-sim-";
// Marks a directory as made by this class; locked while it is in use. What it holds tells whether
// the directory was meant to stay.
constexpr const char* kMarker = ".marlo-sim-root";
constexpr const char* kNewMarker = ".marlo-sim-root.new";
constexpr std::string_view kKept = "kept\n";
// All that is made at the top, apart from the marker.
constexpr const char* kContents[] = {"data", "dev", "run", "sys", "var", "vendor"};

[[noreturn]] void fail(const fs::path& path, const std::string& what) {
    throw RootError("cannot use the root " + path.string() + ": " + what +
                    "; --root names another place");
}

bool lock(int file) {
    return flock(file, LOCK_EX | LOCK_NB) == 0;
}

bool marked_as_kept(int marker) {
    std::array<char, kKept.size()> text{};
    const ssize_t length = pread(marker, text.data(), text.size(), 0);
    return std::string_view(text.data(), length < 0 ? 0 : static_cast<size_t>(length)) == kKept;
}

bool owned_by_this_user(const fs::path& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid();
}

// Empty, or given up by a process that was killed before it had taken possession.
bool unused(const fs::path& directory) {
    for (const auto& entry : fs::directory_iterator(directory)) {
        if (entry.path().filename() != kNewMarker) return false;
    }
    return true;
}

}  // namespace

Root::Root(const std::optional<fs::path>& requested, bool keep) : keep_(keep) {
    try {
        if (requested) {
            take(*requested);
        } else {
            make_own_directory();
        }
        make_directories();
    } catch (const fs::filesystem_error& error) {
        if (marker_ >= 0) close(marker_);
        throw RootError(error.what());
    }
}

Root::~Root() {
    if (!keep_) {
        remove_contents();
        std::error_code ignored;
        fs::remove(path_ / kMarker, ignored);
        // Not what somebody else has put there: then the directory stays.
        if (created_) fs::remove(path_, ignored);
    }
    close(marker_);
}

void Root::make_own_directory() {
    std::string name = (fs::canonical(fs::temp_directory_path()) / kPrefix).string() + "XXXXXX";
    if (!mkdtemp(name.data())) fail(name, std::strerror(errno));
    path_ = name;
    created_ = true;
    lock_new_marker();
}

void Root::take(const fs::path& requested) {
    if (!fs::exists(requested)) {
        created_ = fs::create_directories(requested);
    } else if (!fs::is_directory(requested)) {
        fail(requested, "is not a directory");
    }
    path_ = fs::canonical(requested);
    marker_ = open((path_ / kMarker).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (marker_ < 0) {
        if (!unused(path_)) fail(path_, "is not empty and was not made by marlo-sim");
        lock_new_marker();
        return;
    }
    if (!lock(marker_)) {
        close(marker_);
        fail(path_, "is in use by another marlo-sim");
    }
    remove_contents();
    if (ftruncate(marker_, 0) != 0) fail(path_, std::strerror(errno));
    if (keep_ && pwrite(marker_, kKept.data(), kKept.size(), 0) < 0) fail(path_, "cannot write");
}

// Visible under its name only once it is locked, so that nobody takes it for a left-over.
void Root::lock_new_marker() {
    const fs::path temporary = path_ / kNewMarker;
    marker_ = open(temporary.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (marker_ < 0) fail(temporary, std::strerror(errno));
    if (!lock(marker_)) fail(temporary, "cannot be locked");
    if (keep_ && write(marker_, kKept.data(), kKept.size()) < 0) fail(temporary, "cannot write");
    fs::rename(temporary, path_ / kMarker);
}

void Root::make_directories() {
    fs::create_directory(path_ / "dev");
    fs::create_directory(path_ / "sys");
    fs::create_directories(firmware_directory());
    fs::create_directories(bt_firmware_directory());
    fs::create_directories(backing_directory());
}

void Root::remove_contents() {
    unmount_below(path_);
    for (const char* name : kContents) {
        std::error_code ignored;
        fs::remove_all(path_ / name, ignored);
    }
}

void Root::sweep() {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(fs::temp_directory_path(error), error)) {
        if (entry.path().filename().string().starts_with(kPrefix)) remove_left_over(entry.path());
    }
}

void Root::remove_left_over(const fs::path& root) {
    if (!owned_by_this_user(root)) return;
    const int marker = open((root / kMarker).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (marker < 0) return;
    if (lock(marker)) {
        unmount_below(root);
        std::error_code ignored;
        if (!marked_as_kept(marker)) fs::remove_all(root, ignored);
    }
    close(marker);
}

}  // namespace sim
