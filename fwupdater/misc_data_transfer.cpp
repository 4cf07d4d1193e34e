// SPDX-License-Identifier: Apache-2.0
// The misc-data transfer: its channel, and one answered packet after the other.
#include <cerrno>
#include <cstring>
#include <exception>

#include "daemon/marlo_deamon_log.h"
#include "fwupdater/marlo_fw_updater.h"
#include "wire/crc32.h"

namespace {

constexpr const char* kChannelName = "glink_pkt_marlo_custom_data";

// Nothing reads this channel in the background; it is what its packets would be read with.
constexpr uint32_t kFirstReadSize = 44;

// How often a resource is sent before it is given up.
constexpr int kMaximumTries = 3;

// Without an answer that says how large a packet may be.
constexpr uint32_t kDefaultPacketLimit = 4096;

// Logged and reported.
constexpr const char* kStarting = "### Starting Marlo Misc Data Resources Update. ###";

// The operation in whose name its steps log.
constexpr const char* kSending = "prepare_send_data_buffer";

int32_t status_of(const glink__shm_packet_response* resp) {
    return resp == nullptr ? 0 : resp->status();
}

uint32_t packet_limit(const glink__shm_packet_response* resp) {
    if (resp == nullptr || resp->status() != 0) {
        return kDefaultPacketLimit;
    }
    MARLO_LOG_FOR(kSending, debug, "%s: MAX_PAYLOAD_SIZE = %d)", kSending,
                  static_cast<int>(resp->max_payload_size()));
    return resp->max_payload_size();
}

// Data that goes in one packet says nothing of it.
void log_piece(const misc_data::Piece& piece) {
    if (piece.kind == misc_data::PACKET_DATA) {
        MARLO_LOG_FOR(kSending, debug, "%s %d Buffer with payload size :%d ", kSending,
                      static_cast<int>(piece.sequence), static_cast<int>(piece.size));
    } else if (piece.sequence > 1) {
        MARLO_LOG_FOR(kSending, error, "%s Last buffer with payload size :%d ", kSending,
                      static_cast<int>(piece.size));
    }
}

}  // namespace

void marlo_fw_updater::startMarloSHMUpdater(Callback* cb) {
    MARLO_LOG(debug, "startMarloSHMUpdater");
    callback = cb;
    report_misc_data(Callback::STATUS_STARTED,
                     "Marlo SHM Updater:: Waiting for Glink channel open");
    if (glinkInterface == nullptr) {
        const glink_conn_config config = {kChannelName, kFirstReadSize};
        glink_interface* transport = make_transport_(config).release();
        glinkInterface = transport;
        MARLO_LOG(debug, "About to connect with glinkInterface %p without callback",
                  static_cast<void*>(transport));
        if (transport->connect_interface(false) != 0) {
            report_misc_data(Callback::STATUS_CHANNEL_ERROR,
                             "Marlo SHM Updater:: Glink channel open failed");
        }
    }
    truncateMiscFwResources();
    loadAndSaveMiscFw();
}

void marlo_fw_updater::marloMiscDataUpdateReq() {
    MARLO_LOG(debug, "%s", kStarting);
    report_misc_data(Callback::STATUS_STARTED, kStarting);
    glink__shm_packet_response response;
    int result = 0;  // of the last resource, which alone decides
    for (const auto& resource : misc_resources_now()) {
        result = send_misc_resource(*resource, response);
    }
    if (result <= 0) {
        report_misc_data(Callback::STATUS_ERROR,
                         "### Marlo Misc Data Resources Update Failed. ###");
    } else if (send_finish_data_buffer(&response) == 0) {
        report_misc_data(Callback::STATUS_SUCCESS,
                         "### Marlo Misc Data Resources Update finished. ###");
    }
}

void marlo_fw_updater::endMarloSHMUpdater() {
    MARLO_LOG(debug, "endMarloSHMUpdater");
    truncateMiscFwResources();
    delete_transport();
    last_report(__func__, [this] {
        report_misc_data(Callback::STATUS_ERASE_DONE, "Marlo Misc Data Resources Update Done");
    });
}

MiscResources marlo_fw_updater::misc_resources_now() {
    const std::lock_guard lock(misc_resources_lock_);
    return misc_resources;
}

// The result of the last try.
int marlo_fw_updater::send_misc_resource(const marlo_misc_resource& resource,
                                         glink__shm_packet_response& response) {
    int result = -1;
    for (int tries = 0; tries < kMaximumTries && result < 0; ++tries) {
        result = prepare_send_data_buffer(resource.type, resource.data, &response);
        report_misc_data(Callback::STATUS_INFO, "Finished transfer for type: ", resource.type,
                         " with response code: ", response.status());
    }
    return result;
}

int marlo_fw_updater::prepare_send_data_buffer(uint16_t type, std::span<const uint8_t> data,
                                               glink__shm_packet_response* resp) {
    MARLO_LOG(debug, "%s : Type:%d and res size:%d ", kSending, type,
              static_cast<int>(data.size()));
    report_misc_data(Callback::STATUS_INFO, "Sending Data buffer for type: ", type);
    const int start = send_start_data_buffer(type, data, resp);
    if (start < 0) {
        MARLO_LOG(error, "send_start_data_buffer failed with : %d", status_of(resp));
        report_misc_data(Callback::STATUS_INFO, "Sending Data buffer failed for type: ", type);
        return -1;
    }
    misc_data::DataCutter cutter(packet_limit(resp), static_cast<uint32_t>(data.size()));
    if (start == 0) {
        cutter.take_rest_in_one();
    }
    if (!send_data_packets(type, data, cutter, resp)) {
        MARLO_LOG(error, "send_data_to_aon failed for some packets with: %d", status_of(resp));
        report_misc_data(Callback::STATUS_INFO, "Some packets Data buffer failed for type: ", type);
        return -1;
    }
    const int crc = send_crc_data_buffer(type, data, resp);
    if (crc < 0) {
        MARLO_LOG(error, "send_crc_data_buffer failed with: %d", status_of(resp));
        report_misc_data(Callback::STATUS_INFO,
                         "CRC check for Data buffer failed for type: ", type);
        return -1;
    }
    return crc;
}

// False once a packet has failed. Not so for the last one: its loss shows in the checksum.
bool marlo_fw_updater::send_data_packets(uint16_t type, std::span<const uint8_t> data,
                                         misc_data::DataCutter& cutter,
                                         glink__shm_packet_response* resp) {
    if (!cutter.can_advance()) {
        return false;
    }
    std::vector<uint8_t> packet;
    while (true) {
        const misc_data::Piece piece = cutter.next();
        log_piece(piece);
        try {
            misc_data::build_data_packet(packet, type, piece, data);
        } catch (const std::exception&) {  // whoever made the file chose the size
            MARLO_LOG_FOR(kSending, error, "no memory for a packet with %u bytes", piece.size);
            return false;
        }
        const int result = send_data_to_aon(packet, resp);
        if (piece.kind == misc_data::PACKET_LAST_DATA) {
            return true;
        }
        if (result < 0) {
            return false;
        }
        if (result == 0) {
            cutter.take_rest_in_one();
        }
    }
}

int marlo_fw_updater::send_start_data_buffer(uint16_t type, std::span<const uint8_t> data,
                                             glink__shm_packet_response* resp) {
    MARLO_LOG(debug, "send_start_data_buffer type:%d", type);
    auto packet = misc_data::start_packet(type, static_cast<uint32_t>(data.size()));
    const int result = send_data_to_aon(packet, resp);
    MARLO_LOG(debug, "send_start_data_buffer ret_val:%d", result);
    return result;
}

int marlo_fw_updater::send_crc_data_buffer(uint16_t type, std::span<const uint8_t> data,
                                           glink__shm_packet_response* resp) {
    const uint32_t checksum = wire::crc32(data);
    MARLO_LOG(debug, "send_crc_data_buffer type: %d value: %x", type, checksum);
    auto packet = misc_data::crc_packet(type, checksum);
    return send_data_to_aon(packet, resp);
}

int marlo_fw_updater::send_finish_data_buffer(glink__shm_packet_response* resp) {
    MARLO_LOG(debug, "send_finish_data_buffer");
    auto packet = misc_data::finish_packet();
    return send_data_to_aon(packet, resp);
}

int marlo_fw_updater::send_data_to_aon(std::span<uint8_t> packet,
                                       glink__shm_packet_response* resp) {
    MARLO_LOG(debug, "send_data_to_aon");
    glink_interface* transport = transport_for(__func__);
    if (transport == nullptr) {
        return -1;
    }
    const int sent =
        transport->send_request(packet.data(), static_cast<unsigned int>(packet.size()));
    if (resp == nullptr) {
        return sent;
    }
    if (transport->read_response(resp->bytes.data(), glink__shm_packet_response::kSize) < 0) {
        MARLO_LOG(error, "%s: read failed (error %s)", __func__, strerror(errno));
        return -1;
    }
    if (resp->status() != 0) {
        MARLO_LOG(error, "%s: AON(error %d)", __func__, resp->status());
        return -1;
    }
    return sent;
}
