// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/bundle_files.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <set>
#include <utility>

#include "platform/os.h"

namespace marlo_fw {
namespace {

struct Aim {
    Bundle bundle;
    std::map<std::string, std::string, std::less<>> kernel_texts;
    std::set<std::pair<dev_t, ino_t>> opened;
};

Aim& aim() {
    static Aim instance;
    return instance;
}

// A descriptor from which `text` is read, as from a file of the kernel's.
int open_text(const std::string& text) {
    const int fd = ::memfd_create("kernel-text", MFD_CLOEXEC);
    if (fd >= 0 && (::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
                    ::lseek(fd, 0, SEEK_SET) != 0)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool is_of_bundle(std::string_view path) {
    return path.starts_with(kImageDirectory) || path == kFallbackVersionFile;
}

}  // namespace

void aim_at(const Bundle& bundle) {
    aim() = {
        bundle,
        {{"/sys/devices/soc0/hw_platform", bundle.facts.platform + "\n"},
         {"/sys/devices/soc0/platform_subtype_id", std::to_string(bundle.facts.subtype) + "\n"},
         {"/sys/kernel/dload/dload_mode", bundle.facts.dload + "\n"}},
        {}};
}

std::string name_of(const std::string& device_path) {
    if (device_path == kFallbackVersionFile) return aim().bundle.fallback_version_file;
    if (!is_of_bundle(device_path)) return device_path;
    // As the daemon does: joined as text, so that nothing leads to the root of the file system.
    return aim().bundle.directory + "/" + device_path.substr(kImageDirectory.size());
}

bool was_opened(const struct stat& file) {
    return aim().opened.contains({file.st_dev, file.st_ino});
}

}  // namespace marlo_fw

namespace os {

int open(const char* path, int flags, mode_t mode) {
    marlo_fw::Aim& aim = marlo_fw::aim();
    const auto text = aim.kernel_texts.find(std::string_view(path));
    if (text != aim.kernel_texts.end()) return marlo_fw::open_text(text->second);
    if (!marlo_fw::is_of_bundle(path)) {
        errno = ENOENT;
        return -1;
    }
    const int fd = ::open(marlo_fw::name_of(path).c_str(), flags, mode);
    struct stat status = {};
    if (fd >= 0 && ::fstat(fd, &status) == 0) aim.opened.insert({status.st_dev, status.st_ino});
    return fd;
}

}  // namespace os
