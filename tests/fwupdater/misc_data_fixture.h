// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zlib.h>

#include "tests/fwupdater/recording.h"

inline constexpr char kFirmware[] = "/vendor/bt_firmware/image/mrbtfw20.mbn";
inline constexpr char kSettings[] = "/vendor/bt_firmware/image/mrnv20.bin";

inline constexpr char kOpening[] =
    "misc started Marlo SHM Updater:: Waiting for Glink channel open";
inline constexpr char kStarting[] =
    "misc started ### Starting Marlo Misc Data Resources Update. ###";
inline constexpr char kFailed[] = "misc error ### Marlo Misc Data Resources Update Failed. ###";
inline constexpr char kDone[] = "misc erase-done Marlo Misc Data Resources Update Done";
inline constexpr char kFinish[] = "send 5: 0 0 0";

// Misc-data transfers over a recording transport that takes four bytes of data a packet.
class MiscData : public UpdaterTest {
  protected:
    void SetUp() override {
        UpdaterTest::SetUp();
        script_.text = misc_packet_text;
        script_.usual_answer.limit = 20;
    }

    // Opens the channel, with these settings to send.
    void begin(const std::string& settings) {
        scripted::platform().file(kSettings, settings);
        updater_.startMarloSHMUpdater(&recording_);
        recording_.take();
    }

    // The request's steps behind its announcement; a text may hold several, one a line.
    void expect_request(const Lines& lines) {
        updater_.marloMiscDataUpdateReq();
        EXPECT_EQ(in_lines(recording_.take()), in_lines(lines, kStarting));
    }

    static std::string in_lines(const Lines& lines, std::string text = "") {
        for (const std::string& line : lines) {
            text += (text.empty() ? "" : "\n") + line;
        }
        return text;
    }

    // One try at a resource: what it sends, what it reports then, and how it ends.
    static std::string attempt(int type, Lines steps, int response_code,
                               const std::string& report = "") {
        const std::string number = std::to_string(type);
        steps.insert(steps.begin(), "misc info Sending Data buffer for type: " + number);
        if (!report.empty()) {
            steps.push_back("misc info " + report + " for type: " + number);
        }
        steps.push_back("misc info Finished transfer for type: " + number +
                        " with response code: " + std::to_string(response_code));
        return in_lines(steps);
    }

    // A try whose start packet is refused, or not answered: nothing follows it.
    static std::string refused(int type, size_t size, int response_code) {
        return attempt(type,
                       {"send 0: " + std::to_string(type) + " " + std::to_string(size) + " 0"},
                       response_code, "Sending Data buffer failed");
    }

    // A try that sends nothing, or nothing that is recorded.
    static std::string unsent(int type) {
        return attempt(type, {}, 0, "Sending Data buffer failed");
    }

    // A try of which only the first packets are sent.
    std::string stopped(ptrdiff_t packets, int response_code, const std::string& report) const {
        return attempt(1, {digits_sent_.begin(), digits_sent_.begin() + packets}, response_code,
                       report);
    }

    static std::string crc_packet(int type, const std::string& data) {
        char text[40];
        snprintf(
            text, sizeof(text), "send 4: %d 4 0 %08lx", type,
            crc32(0, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size())));
        return text;
    }

    // A resource of type 1 that takes two data packets, and its try.
    const std::string digits_ = "123456789";
    const Lines digits_sent_ = {"send 0: 1 9 0", "send 1: 1 4 1 1234", "send 2: 1 5 2 56789",
                                "send 4: 1 4 0 cbf43926"};
    const std::string good_ = attempt(1, digits_sent_, 0);
};
