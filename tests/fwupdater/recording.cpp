// SPDX-License-Identifier: Apache-2.0
#include "tests/fwupdater/recording.h"

#include <zlib.h>

namespace {

uint32_t word(const Bytes& bytes, size_t offset) {
    uint32_t value = 0;
    for (size_t index = 4; index-- > 0;) {
        value = value << 8 | bytes.at(offset + index);
    }
    return value;
}

constexpr const char* kStatusNames[] = {"started", "info",  "erase-done",   "error",
                                        "success", "ended", "channel-error"};

}  // namespace

Bytes message(uint32_t id, const std::vector<uint32_t>& words) {
    Bytes bytes(16);
    bytes[0] = static_cast<uint8_t>(id);
    for (const uint32_t value : words) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<uint8_t>(value >> shift));
        }
    }
    return bytes;
}

std::string packet_text(const Bytes& packet) {
    Bytes unsealed = packet;
    std::fill_n(unsealed.begin() + 12, 4, uint8_t{0});
    EXPECT_EQ(word(packet, 4), 0x0A0B0C0DU);
    EXPECT_EQ(word(packet, 8), packet.size());
    EXPECT_EQ(word(packet, 12), crc32(0, unsealed.data(), static_cast<uInt>(unsealed.size())));
    std::string text = std::to_string(word(packet, 0)) + ":";
    for (size_t offset = 16; offset + 4 <= std::min<size_t>(packet.size(), 28); offset += 4) {
        text += " " + std::to_string(word(packet, offset));
    }
    char digits[4];
    for (size_t offset = 28; offset < packet.size(); ++offset) {
        snprintf(digits, sizeof(digits), " %02x", packet[offset]);
        text += digits;
    }
    return text;
}

void Recording::note(const std::string& line) {
    const std::lock_guard lock(lock_);
    const std::string property = scripted::platform().property("persist.vendor.zt_aon.dfu_update");
    if (std::exchange(property_, property) != property) {
        lines_.push_back("property " + property);
    }
    lines_.push_back(line);
}

Lines Recording::take() {
    const std::lock_guard lock(lock_);
    return std::exchange(lines_, {});
}

void Recording::handleDFUResponse(std::string message, Status status) {
    note(std::string(kStatusNames[status]) + " " + message);
}
void Recording::handleSHMResponse(std::string message, Status) {
    note("unexpected " + message);
}
void Recording::onDFUStateRecived(DFUState state) {
    note("state " + std::to_string(static_cast<uint32_t>(state)));
}

RecordingTransport::RecordingTransport(glink_conn_config config, Recording& recording,
                                       std::deque<int>& results, bool opens)
    : recording_(recording), results_(results), opens_(opens) {
    recording_.note(std::string("make ") + config.channel_name + " " +
                    std::to_string(config.read_size));
}
RecordingTransport::~RecordingTransport() {
    recording_.note("delete");
}

int RecordingTransport::register_cb(glink_data_callback data_cb, glink_error_callback err_cb) {
    recording_.note("register");
    data_cb_ = std::move(data_cb);
    error_cb_ = std::move(err_cb);
    return 0;
}

int RecordingTransport::send_request(unsigned char* buf, unsigned int len) {
    recording_.note("send " + packet_text(Bytes(buf, buf + len)));
    if (results_.empty()) {
        return static_cast<int>(len);
    }
    const int result = results_.front();
    results_.pop_front();
    return result;
}

int RecordingTransport::connect_interface(bool start_reader) {
    recording_.note(start_reader ? "connect with reader" : "connect");
    if (opens_) {
        return 0;
    }
    const glink_error_callback error_cb = error_cb_;
    error_cb(GLINK_OPEN_FAILED);  // may delete this object
    return -1;
}

void UpdaterTest::TearDown() {
    expect({});
    EXPECT_TRUE(results_.empty()) << results_.size() << " scripted results were not used";
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
