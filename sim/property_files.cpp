// SPDX-License-Identifier: Apache-2.0
#include "sim/property_files.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace sim {
namespace {

constexpr const char* kDirectory = "run/marlo/properties";
constexpr const char* kPersistentDirectory = "var/lib/marlo/properties";

std::string read_value(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    std::string value = text.str();
    if (value.ends_with('\n')) value.pop_back();
    return value;
}

[[noreturn]] void fail_to_watch() {
    const int error = errno;
    std::string why =
        std::string("cannot watch the properties with inotify: ") + std::strerror(error);
    if (error == EMFILE) {
        const std::string most = read_value("/proc/sys/fs/inotify/max_user_instances");
        why += " (the user has as many watches as fs.inotify.max_user_instances allows, " + most +
               ", or the process as many files as `ulimit -n`); `sysctl"
               " fs.inotify.max_user_instances=1024` as root allows more";
    }
    throw std::runtime_error(why);
}

}  // namespace

PropertyFiles::PropertyFiles(const std::filesystem::path& root)
    : root_(root), watch_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (watch_ < 0) fail_to_watch();
    for (const char* directory : {kDirectory, kPersistentDirectory}) {
        const std::filesystem::path path = root_ / directory;
        std::filesystem::create_directories(path);
        // Renamed into place by the daemon, or written by hand with echo.
        if (inotify_add_watch(watch_, path.c_str(), IN_MOVED_TO | IN_CLOSE_WRITE) < 0) {
            const int error = errno;
            close(watch_);
            throw std::system_error(error, std::generic_category(), "watching " + path.string());
        }
    }
}

PropertyFiles::~PropertyFiles() {
    close(watch_);
}

std::filesystem::path PropertyFiles::path_of(const std::string& name) const {
    return root_ / (name.starts_with("persist.") ? kPersistentDirectory : kDirectory) / name;
}

void PropertyFiles::set(const std::string& name, const std::string& value) {
    const std::filesystem::path path = path_of(name);
    const std::filesystem::path temporary = path.parent_path() / ("." + name + ".marlo-sim");
    std::ofstream file(temporary);
    file << value << std::flush;
    if (!file) throw std::runtime_error("cannot write " + temporary.string());
    file.close();
    std::filesystem::rename(temporary, path);
}

std::vector<PropertyChange> PropertyFiles::take_changes() {
    std::vector<PropertyChange> changes;
    alignas(inotify_event) std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t length = read(watch_, buffer.data(), buffer.size());
        if (length <= 0) return changes;
        size_t position = 0;
        while (position < static_cast<size_t>(length)) {
            inotify_event event;
            std::memcpy(&event, buffer.data() + position, sizeof event);
            const std::string name = event.len ? buffer.data() + position + sizeof event : "";
            position += sizeof event + event.len;
            // A leading dot marks a temporary file.
            if (name.empty() || name.front() == '.') continue;
            changes.push_back({name, read_value(path_of(name))});
        }
    }
}

}  // namespace sim
