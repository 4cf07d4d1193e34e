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

    void begin() {
        updater_.startMarloSHMUpdater(&recording_);
        recording_.take();
    }

    // The request's steps behind its announcement.
    void expect_request(Lines lines) {
        updater_.marloMiscDataUpdateReq();
        lines.insert(lines.begin(), kStarting);
        expect(lines);
    }

    // One try at a resource: what it sends, and how it ends.
    static Lines attempt(int type, const Lines& steps, int response_code) {
        const std::string number = std::to_string(type);
        Lines lines = {"misc info Sending Data buffer for type: " + number};
        lines.insert(lines.end(), steps.begin(), steps.end());
        lines.push_back("misc info Finished transfer for type: " + number +
                        " with response code: " + std::to_string(response_code));
        return lines;
    }

    static Lines join(const std::vector<Lines>& parts) {
        Lines all;
        for (const Lines& part : parts) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
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

    // A try whose start packet is refused, or not answered: nothing follows it.
    static Lines refused(int type, size_t size, int response_code) {
        Lines steps = unsent(type, response_code);
        steps.insert(steps.begin() + 1,
                     "send 0: " + std::to_string(type) + " " + std::to_string(size) + " 0");
        return steps;
    }

    // A try that sends nothing, or nothing that is recorded.
    static Lines unsent(int type, int response_code = 0) {
        return attempt(type,
                       {"misc info Sending Data buffer failed for type: " + std::to_string(type)},
                       response_code);
    }
};
