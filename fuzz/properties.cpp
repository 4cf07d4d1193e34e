// SPDX-License-Identifier: Apache-2.0
// A start of the daemon among properties and kernel texts of any contents, with a control device
// that answers as it likes. Whatever they say, the daemon ends up watching the reset property.
#include <cutils/properties.h>
#include <dirent.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>

#include "daemon/MarloDaemon.h"
#include "fuzz/harness.h"

using fuzz::must;
using fuzz::platform;

namespace {

constexpr const char* kRemoteproc = "/sys/class/remoteproc/";
constexpr const char* kTwmExit = "/sys/class/pmic-lpm/pmic_twm_exit";
constexpr const char* kSubtype = "/sys/devices/soc0/platform_subtype_id";
constexpr const char* kResetProperty = "vendor.marlo_reset";
constexpr const char* kUpdateProperty = "persist.vendor.zt_aon.dfu_update";

// By then a boot is over, with all of its retries.
constexpr int64_t kBootSeconds = 60;
constexpr int kSleeps = 66;

// The control device's commands (the request block's sixth word).
constexpr uint32_t kTwmExitCommand = 1;
constexpr uint32_t kLoad = 3;
constexpr uint32_t kSetMode = 5;
constexpr uint32_t kGetMode = 6;
constexpr uint32_t kSetStatus = 8;
constexpr uint32_t kResetRequest = 0xc0205605;
constexpr uint32_t kIpcRequest = 0xc0205608;
constexpr uint32_t kBootRequest = 0xc0205609;

// The number at the beginning of what is read of a text.
int number_in(const std::string& text, size_t most) {
    return std::atoi(text.substr(0, most).c_str());
}

// As far as whoever reads it as a C string can see.
std::string until_nul(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

class Start {
  public:
    explicit Start(fuzz::Input& input) : input_(input) {
        for (const char* name : {kUpdateProperty, "vendor.zt_aon.misc_update", kResetProperty,
                                 "vendor.marlo.boot_complete"}) {
            const std::string value = property_value();
            platform().property(name, value);
        }
        update_ = platform().property(kUpdateProperty);
        twm_exit_ = text_file(kTwmExit, "1\n");
        subtype_ = text_file(kSubtype, "0\n");
        text_file("/sys/devices/soc0/hw_platform", "WDP");
        text_file("/sys/kernel/dload/dload_mode", "mini\n");
        text_file("/vendor/firmware_mnt/image/tbx7700_ver_info.txt", "\"apps_cochip\": \"A\"");
        text_file("/vendor/firmware_mnt/image/./partition_table.xml", "<config><Bank_1/></config>");
        make_instances();
        platform().device("/dev/marlo_com_dev");
        platform().on_ioctl(
            [this](uint32_t request, uint32_t* words) { return command(request, words); });
    }

    void run() {
        reset_ = property_value();
        platform().on_sleep([this](int64_t seconds) { take_second(seconds); });
        platform().fail_next_thread(EAGAIN);  // of the restart listener
        platform().stop_after_sleeps(kSleeps);
        MarloDaemon daemon;
        try {
            daemon.startMarloDaemon();
        } catch (const scripted::Stopped&) {
        }
        check();
        g_marlo_daemon = nullptr;
    }

  private:
    // As the property service keeps it.
    std::string property_value() {
        std::string value = input_.flip() ? input_.text(input_.below(PROPERTY_VALUE_MAX))
                                          : std::to_string(input_.below(3));
        return until_nul(value);
    }

    // What can be read of it; nothing where it cannot be opened or read.
    std::optional<std::string> text_file(const std::string& path, const char* usual) {
        const uint32_t kind = input_.below(8);
        if (kind == 1) {
            return std::nullopt;
        }
        const std::string text = kind == 0 ? input_.text(input_.below(64)) : usual;
        platform().file(path, text);
        if (kind == 2) {
            platform().script_read(path, scripted::failure(EIO));
            return std::nullopt;
        }
        if (kind == 3) {
            platform().fail_opens(path, {EACCES});
            return std::nullopt;
        }
        return until_nul(text);
    }

    void make_instances() {
        std::vector<std::pair<std::string, uint8_t>> entries;
        for (uint32_t count = input_.below(4); count > 0; --count) {
            std::string name = input_.flip() ? "remoteproc" : "";
            name += input_.flip() ? "1" : input_.text(input_.below(256 - 16));
            name = until_nul(name);
            const uint8_t type = input_.pick<uint8_t>({DT_DIR, DT_LNK, DT_REG});
            entries.emplace_back(name, type);
            const std::string directory = std::string(kRemoteproc) + "/" + name;
            text_file(directory + "/name", "soc:zeno,rproc-marlo\n");
            state_path_ = directory + "/state";
            text_file(state_path_, input_.flip() ? "running\n" : "offline\n");
        }
        if (input_.below(16) != 1) {
            platform().directory(kRemoteproc, entries);
        }
    }

    int command(uint32_t request, uint32_t* words) {
        const uint32_t cmd = words[5];
        if (request == kResetRequest) {
            ++resets_;
        } else if (request == kIpcRequest) {
            return answer_version(words);
        } else if (request == kBootRequest) {
            must(cmd != kSetMode || words[0] <= 1, "mode %u is set", words[0]);
            must(cmd != kSetStatus || words[0] <= 3, "boot status %u is set", words[0]);
            ++commands_[cmd];
            if (cmd == kGetMode) {
                const int mode = input_.pick({1, 0, 1, 0, 2, -EIO});
                first_mode_ = first_mode_.value_or(mode);
                return mode;
            }
            if (cmd == kLoad && !state_path_.empty()) {
                platform().file(state_path_, input_.flip() ? "offline" : "running");
            }
        }
        return input_.below(8) == 1 ? -EIO : 0;
    }

    int answer_version(const uint32_t* words) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): this is how the device is given it.
        auto* reply = reinterpret_cast<char*>(static_cast<uintptr_t>(words[7]));
        const std::string_view apps = input_.pick({"A", "B", "NOFLASH_PSRAM", ""});
        apps.copy(reply + 8, 100);
        for (const size_t place : {8U, 108U, 208U}) {
            const std::string text = input_.text(input_.below(101));
            text.copy(reply + place, input_.flip() ? text.size() : 0);
        }
        return input_.below(4) == 1 ? -EIO : 0;
    }

    void take_second(int64_t seconds) {
        if (seconds >= kBootSeconds && !is_over_) {
            is_over_ = true;
            resets_ = 0;
            platform().property(kResetProperty, reset_);
        }
    }

    void check() {
        must(is_over_, "the start is not over after %d sleeps", kSleeps);
        const bool is_asked_for = number_in(reset_, PROPERTY_VALUE_MAX) == 1;
        must(resets_ == (is_asked_for ? 1 : 0), "%d resets for %s", resets_, reset_.c_str());
        must(platform().property(kResetProperty) == (is_asked_for ? "0" : reset_),
             "the reset property is %s", platform().property(kResetProperty).c_str());
        for (const std::string& line : platform().transcript({"set "})) {
            must(line.ends_with("=0") || line.ends_with("=1"), "%s", line.c_str());
        }
        must(platform().open_descriptors() == 0, "a file is left open");
        must(fuzz::log_lines() <= 400, "%zu log lines", fuzz::log_lines());
        check_boot();
    }

    void check_boot() {
        int state = -1;
        sscanf(twm_exit_.value_or("").substr(0, 20).c_str(), "%d", &state);
        must(commands_[kTwmExitCommand] == (state == 1 ? 1 : 0), "TWM exit of %d", state);
        const bool is_supported = subtype_ && number_in(*subtype_, 2) == 0;
        must(is_supported == (commands_[kGetMode] > 0), "platform subtype %s",
             subtype_.value_or("unknown").c_str());
        must(is_supported || commands_[kLoad] == 0, "loaded on another platform");
        const bool is_update = first_mode_ == FLASH && number_in(update_, update_.size()) != 1;
        must(!is_update || commands_[kSetMode] == 1, "no update though \"%s\"", update_.c_str());
    }

    fuzz::Input& input_;
    std::string update_;
    std::string reset_;
    std::optional<std::string> twm_exit_;
    std::optional<std::string> subtype_;
    std::string state_path_;
    std::map<uint32_t, int> commands_;
    std::optional<int> first_mode_;
    int resets_ = 0;
    bool is_over_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::begin();
    fuzz::Input input(data, size);
    Start(input).run();
    return 0;
}
