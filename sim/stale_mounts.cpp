// SPDX-License-Identifier: Apache-2.0
#include "sim/stale_mounts.h"

#include <mntent.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace sim {
namespace {

std::vector<std::string> mount_points_below(const std::filesystem::path& directory) {
    std::vector<std::string> found;
    FILE* table = setmntent("/proc/self/mounts", "re");
    if (!table) return found;
    const std::string prefix = directory.string() + "/";
    while (const mntent* entry = getmntent(table)) {
        if (std::string(entry->mnt_dir).starts_with(prefix)) found.push_back(entry->mnt_dir);
    }
    endmntent(table);
    return found;
}

// An ordinary user's way: the set-uid helper that mounted it.
void unmount_as_user(const std::string& path) {
    std::string program = "fusermount3", unmount = "-u", quiet = "-q", lazy = "-z", target = path;
    char* arguments[] = {program.data(), unmount.data(), quiet.data(),
                         lazy.data(),    target.data(),  nullptr};
    pid_t helper = 0;
    if (posix_spawnp(&helper, program.c_str(), nullptr, nullptr, arguments, environ) == 0) {
        waitpid(helper, nullptr, 0);
    }
}

}  // namespace

void unmount_below(const std::filesystem::path& directory) {
    for (const std::string& path : mount_points_below(directory)) {
        if (geteuid() == 0) {
            umount2(path.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);
        } else {
            unmount_as_user(path);
        }
    }
}

}  // namespace sim
