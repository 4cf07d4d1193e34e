// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "comhandler/client_wakelock.h"
#include "daemon/MarloDaemon.h"
#include "platform/scripted/scripted_platform.h"
#include "wire/little_endian.h"

// The daemon in front of a scripted co-processor, and the course of events in words.
class DaemonTest : public testing::Test, protected BootProgressObserver {
  protected:
    static constexpr const char* kDfuChannel = "/dev/glink_pkt_marlo_dfu";
    static constexpr const char* kMiscChannel = "/dev/glink_pkt_marlo_custom_data";
    static constexpr const char* kRmaChannel = "/dev/glink_pkt_marlo_rma";
    static constexpr const char* kState = "/sys/class/remoteproc//remoteproc1/state";
    static constexpr const char* kListenerCalled = "D marloSSREventListener: called\n";
    static constexpr const char* kVersionFile = "/vendor/firmware_mnt/image/tbx7700_ver_info.txt";

    DaemonTest() {
        scripted::reset_platform();
        auto& platform = scripted::platform();
        client_wakelock::get_instance();  // before its files are there: it writes nothing
        platform.device("/dev/marlo_com_dev");
        for (const char* channel : {kDfuChannel, kMiscChannel, kRmaChannel}) {
            platform.device(channel);
        }
        platform.on_write(kMiscChannel, [](const scripted::Bytes&) { accept_misc_packet(); });
        platform.file("/sys/devices/soc0/platform_subtype_id", "0\n");
        platform.directory("/sys/class/remoteproc/", {{".", DT_DIR}, {"remoteproc1", DT_LNK}});
        platform.file("/sys/class/remoteproc//remoteproc1/name", "soc:zeno,rproc-marlo\n");
        platform.file(kVersionFile, "\"apps_cochip\": \"APPS.2\",\n");
        set_running(false);
        platform.on_ioctl(
            [this](uint32_t request, uint32_t* words) { return command(request, words); });
        daemon_ = std::make_unique<MarloDaemon>();
        daemon_->set_boot_progress_observer(this);
    }

    ~DaemonTest() override {
        if (scripted::platform().count("registerMarloSSREvent: called") > 0) {
            scripted::platform().end_uevents();
        }
        daemon_.reset();
        g_marlo_daemon = nullptr;
        g_daemon_state = DAEMON_NOT_STARTED;
    }

    void onBootProgress(int code) override {
        scripted::platform().remark("notify " + std::to_string(code));
    }

    void set_running(bool running) {
        scripted::platform().file(kState, running ? "running\n" : "offline\n");
    }

    // Runs the daemon up to the sleep with this number, counted from 1.
    void start_until_sleep(int number) {
        scripted::platform().stop_after_sleeps(number);
        EXPECT_THROW(daemon_->startMarloDaemon(), scripted::Stopped);
    }

    // The co-processor's answer to the state query, on the channel.
    void report_dfu_state(uint32_t state) {
        scripted::Bytes message;
        wire::Writer(message)
            .u32(14)
            .u32(0x0A0B0C0D)
            .u32(44)
            .u32(0)
            .u32(1)
            .u32(0)
            .u32(0)
            .u32(state);
        message.resize(44);
        scripted::platform().script_read(kDfuChannel, {message});
        scripted::platform().wait_until_idle();
    }

    // The kernel announces an event of the co-processor; returns when the daemon has reacted.
    void announce(int event) {
        scripted::platform().uevent("change@/devices/virtual/marlo_com_dev" + std::string(1, '\0') +
                                    "MARLO_EVENT=" + std::to_string(event));
        scripted::platform().wait_until_listening();
    }

    // The co-processor's answer to a misc-data packet: status 0, packets of at most 4096 bytes.
    static void accept_misc_packet() {
        scripted::Bytes answer(16);
        wire::Writer(answer).u32(0).u32(4096);
        scripted::platform().script_read(kMiscChannel, {answer});
    }

    // Commands, properties, sleeps, notifications, what goes to the channels, and the lines of the
    // daemon's core; not the first line of the restart listener, which may come at any time.
    std::vector<std::string> course() {
        static const std::regex statement("^. ~?[A-Za-z_]+:\\d+, [^]*");
        std::vector<std::string> lines;
        for (std::string line :
             scripted::platform().transcript({"ioctl", "set ", "sleep", "notify", "E ", "I ", "D ",
                                              "F ", "open /dev/glink", "write /dev/glink"})) {
            if (!std::regex_match(line, statement) && line != kListenerCalled) {
                lines.push_back(in_words(line));
            }
        }
        return lines;
    }

    // Of the course, all that is not a log line.
    std::vector<std::string> actions() {
        std::vector<std::string> lines = course();
        std::erase_if(lines, [](const std::string& line) { return line[1] == ' '; });
        return lines;
    }

    static bool logged(const std::string& line) {
        const auto lines = scripted::platform().log();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    int boot_mode_ = FLASH;
    int loads_to_fail_ = 0;
    bool stays_offline_ = false;
    int version_result_ = 0;
    std::string apps_version_ = "APPS.2-full";
    std::unique_ptr<MarloDaemon> daemon_;

  private:
    int command(uint32_t request, uint32_t* words) {
        if (request == 0xc0205608) {
            char* reply = reinterpret_cast<char*>(static_cast<uintptr_t>(words[7]));
            apps_version_.copy(reply + 8, 99);
            return version_result_;
        }
        if (request != 0xc0205609) {
            return 0;
        }
        switch (words[5]) {
            case 3:
                if (loads_to_fail_ > 0) {
                    --loads_to_fail_;
                    return -EIO;
                }
                set_running(!stays_offline_);
                return 0;
            case 4:
                set_running(false);
                return 0;
            case 5:
                boot_mode_ = static_cast<int>(words[0]);
                return 0;
            case 6:
                return boot_mode_;
            default:
                return 0;
        }
    }

    static std::string in_words(const std::string& line) {
        static const std::map<std::string, std::string> names = {
            {"0x80205603 cmd 0", "SPI free"},   {"0x80205604 cmd 0", "SPI busy"},
            {"0xc0205605 cmd 20", "reset"},     {"0xc0205608 cmd 3", "query version"},
            {"0xc0205609 cmd 0", "soft reset"}, {"0xc0205609 cmd 1", "TWM exit"},
            {"0xc0205609 cmd 3", "load"},       {"0xc0205609 cmd 4", "unload"},
            {"0xc0205609 cmd 5", "set mode"},   {"0xc0205609 cmd 6", "get mode"},
            {"0xc0205609 cmd 7", "save dump"},  {"0xc0205609 cmd 8", "boot status"},
        };
        std::smatch parts;
        static const std::regex open("open /dev/glink_pkt_marlo_(\\w+) = (-1 (\\d+)|\\d+)");
        if (std::regex_match(line, parts, open)) {
            return "open " + parts[1].str() + (parts[3].matched ? " fails: " + parts[3].str() : "");
        }
        static const std::regex write("write /dev/glink_pkt_marlo_(\\w+) (\\d+)");
        if (std::regex_match(line, parts, write)) {
            return parts[2].str() + " bytes to " + parts[1].str();
        }
        static const std::regex ioctl("ioctl (\\S+ cmd \\d+) value (\\d+) = (-?\\d+)");
        if (!std::regex_match(line, parts, ioctl)) {
            return line;
        }
        std::string words = names.at(parts[1]);
        if (words == "set mode" || words == "boot status") {
            words += " " + parts[2].str();
        }
        return parts[3] == "0" ? words : words + " = " + parts[3].str();
    }
};
