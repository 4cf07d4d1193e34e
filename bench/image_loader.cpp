// SPDX-License-Identifier: Apache-2.0
// A process that loads the images below MARLO_ROOT as the daemon does, and nothing else. Prints the
// seconds that it took, and its resident memory before and at most, in KiB.
#include <android/log.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "fwupdater/marlo_fw_updater.h"
#include "platform/os.h"

namespace {

// A channel on which nothing ever comes.
class SilentTransport : public glink_interface {
  public:
    int register_cb(glink_data_callback, glink_error_callback) override { return 0; }
    int send_request(unsigned char*, unsigned int) override { return 0; }
    int read_response(unsigned char*, unsigned int) override { return -1; }
    int connect_interface(bool) override { return 0; }
    void disconnect_interface() override {}
};

// The number behind `name` in /proc/self/status.
long status_of_this_process(const std::string& name) {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(name + ":")) {
            return std::stol(line.substr(name.size() + 1));
        }
    }
    return 0;
}

}  // namespace

int main() {
    os::initialize();
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    marlo_fw_updater updater([](const glink_conn_config&) -> std::unique_ptr<glink_interface> {
        return std::make_unique<SilentTransport>();
    });
    const long before = status_of_this_process("VmRSS");
    const auto begin = std::chrono::steady_clock::now();
    updater.startMarloDownloaderWithCallback(nullptr);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    if (!updater.checkForFlashbin()) {
        std::fputs("no images were loaded\n", stderr);
        return 1;
    }
    std::printf("%.9f %ld %ld\n", seconds.count(), before, status_of_this_process("VmHWM"));
    return 0;
}
