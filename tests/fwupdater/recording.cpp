// SPDX-License-Identifier: Apache-2.0
#include "tests/fwupdater/recording.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>

namespace {

constexpr const char* kStatusNames[] = {"started", "info",  "erase-done",   "error",
                                        "success", "ended", "channel-error"};

}  // namespace

Bytes message(uint32_t id, const std::vector<uint32_t>& words) {
    Bytes bytes(16);
    bytes[0] = static_cast<uint8_t>(id);
    for (const uint32_t value : words) {
        append_word(bytes, value);
    }
    return bytes;
}

std::string packet_text(const Bytes& packet) {
    Bytes unsealed = packet;
    std::fill_n(unsealed.begin() + 12, 4, uint8_t{0});
    EXPECT_EQ(word(packet, 4), 0x0A0B0C0DU);
    EXPECT_EQ(word(packet, 8), packet.size());
    EXPECT_EQ(word(packet, 12), crc32(0, unsealed.data(), static_cast<uInt>(unsealed.size())));
    return std::to_string(word(packet, 0)) + ":" +
           words_text(packet, 16, std::min<size_t>(packet.size(), 28)) + hex_text(packet, 28);
}

std::string misc_packet_text(const Bytes& packet) {
    const std::string header = std::to_string(word(packet, 0)) + ":" + words_text(packet, 4, 16);
    if (word(packet, 0) == 4) {
        char digits[10];
        snprintf(digits, sizeof(digits), " %08x", word(packet, 16));
        return header + digits + std::string(packet.begin() + 20, packet.end());
    }
    return header + (packet.size() > 16 ? " " : "") +
           std::string(packet.begin() + 16, packet.end());
}

void Recording::note(const std::string& line) {
    const std::lock_guard lock(lock_);
    const std::string property = scripted::platform().property("persist.vendor.zt_aon.dfu_update");
    if (std::exchange(property_, property) != property) {
        lines_.push_back("property " + property);
    }
    lines_.push_back(line);
}

void Recording::report(const std::string& line) {
    note(line);
    if (on_report) {
        on_report(line);
    }
}

Lines Recording::take() {
    const std::lock_guard lock(lock_);
    return std::exchange(lines_, {});
}

void Recording::handleDFUResponse(std::string message, Status status) {
    report(std::string(kStatusNames[status]) + " " + message);
}
void Recording::handleSHMResponse(std::string message, Status status) {
    report(std::string("misc ") + kStatusNames[status] + " " + message);
}
void Recording::onDFUStateRecived(DFUState state) {
    note("state " + std::to_string(static_cast<uint32_t>(state)));
}

RecordingTransport::RecordingTransport(glink_conn_config config, Recording& recording,
                                       TransportScript& script)
    : recording_(recording), script_(script) {
    recording_.note(std::string("make ") + config.channel_name + " " +
                    std::to_string(config.read_size));
}
RecordingTransport::~RecordingTransport() {
    recording_.note("delete");
}

int RecordingTransport::register_cb(glink_data_callback data_cb, glink_error_callback err_cb) {
    data_cb_ = std::move(data_cb);
    error_cb_ = std::move(err_cb);
    return 0;
}

int RecordingTransport::send_request(unsigned char* buf, unsigned int len) {
    recording_.note("send " + script_.text(Bytes(buf, buf + len)));
    if (script_.results.empty()) {
        return static_cast<int>(len);
    }
    const int result = script_.results.front();
    script_.results.pop_front();
    return result;
}

int RecordingTransport::read_response(unsigned char* buf, unsigned int len) {
    Answer answer = script_.usual_answer;
    if (!script_.answers.empty()) {
        answer = script_.answers.front();
        script_.answers.pop_front();
    }
    if (answer.error != 0) {
        errno = answer.error;
        return -1;
    }
    EXPECT_EQ(len, 24U);
    if (!answer.brings_nothing) {
        Bytes bytes(16, 0xEE);  // nobody looks at these
        append_word(bytes, static_cast<uint32_t>(answer.status));
        append_word(bytes, answer.limit);
        std::copy(bytes.begin(), bytes.end(), buf);
    }
    return 0;
}

int RecordingTransport::connect_interface(bool start_reader) {
    recording_.note(start_reader ? "connect with reader" : "connect");
    if (script_.opens) {
        return 0;
    }
    if (const glink_error_callback error_cb = error_cb_) {
        error_cb(GLINK_OPEN_FAILED);  // may delete this object
    }
    return -1;
}

void UpdaterTest::TearDown() {
    expect({});
    EXPECT_TRUE(script_.results.empty()) << script_.results.size() << " results were not used";
    EXPECT_TRUE(script_.answers.empty()) << script_.answers.size() << " answers were not used";
}

void UpdaterTest::table(const std::string& partitions, int boot_loader_offset) {
    image("./partition_table.xml", "<table><mbr><Partition_1_SBL_Offset>" +
                                       std::to_string(boot_loader_offset) +
                                       "</Partition_1_SBL_Offset></mbr><Bank_1><Partition_table>" +
                                       partitions + "</Partition_table></Bank_1></table>");
}

void UpdaterTest::image(const std::string& name, const std::string& contents) {
    scripted::platform().file(kImages + name, contents);
}

void UpdaterTest::start() {
    updater_.startMarloDownloaderWithCallback(&recording_);
    recording_.take();
}
