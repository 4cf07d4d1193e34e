// SPDX-License-Identifier: Apache-2.0
// The image update: its start, the three answers, and how a message is sent.
#include <cutils/properties.h>

#include <new>

#include "daemon/marlo_deamon_log.h"
#include "fwupdater/marlo_fw_updater.h"
#include "glink/channel_user_log.h"
#include "platform/os.h"

namespace {

// "1" once a firmware update has been completed; read at the next boot.
constexpr const char* kUpdateDoneProperty = "persist.vendor.zt_aon.dfu_update";

// Both are logged and reported.
constexpr const char* kStarting = "### Starting Marlo Firmware Update. ###";
constexpr const char* kFinished = "### Marlo Firmware Update finished. ###";

// The co-processor chooses the fragment length. A longer one is a damaged request, and answering it
// would only take memory away from everybody.
constexpr uint32_t kMaximumFragment = 16 * 1024 * 1024;

}  // namespace

void marlo_fw_updater::marloFirmwareUpdateReq() {
    MARLO_LOG(debug, "%s", kStarting);
    if (!checkForFlashbin()) {
        report(Callback::STATUS_ERROR, "AON Flash bin file is empty or not present");
        return;
    }
    const auto payload = dfu::update_request();
    if (send_aon_request(dfu::MG_UPDT_REQ, payload.data(), payload.size()) < 1) {
        return;
    }
    property_set(kUpdateDoneProperty, "0");
    update_finished = false;
    report(Callback::STATUS_STARTED, kStarting);
    start_time = os::time();
}

void marlo_fw_updater::sendmarloImageInfoRes(uint32_t image_id) {
    MARLO_LOG(debug, "sendmarloImageInfoRes %d", static_cast<int>(image_id));
    const ResourceList::Resource resource = fw_resources.find(image_id);
    const uint32_t size = resource == nullptr ? 0 : resource->size;
    const auto payload = dfu::three_words(image_id, size, 0);
    send_aon_request(dfu::IMG_INFO_RESP, payload.data(), payload.size());
    report(Callback::STATUS_INFO, "Updating Image ID: ", image_id, " size:", size);
}

// The hot path: runs once per fragment.
void marlo_fw_updater::sendmarloImageOffsetRes(uint32_t image_id, uint32_t offset,
                                               uint32_t fragment_len) {
    MARLO_LOG(debug, "sendmarloImageOffsetRes ID=%d offset=%d fragment_len=%d",
              static_cast<int>(image_id), static_cast<int>(offset), static_cast<int>(fragment_len));
    const ResourceList::Resource resource = fw_resources.find(image_id);
    std::span<const uint8_t> image;
    uint32_t percentage = 0;
    if (resource != nullptr) {
        image = resource->data == nullptr ? image : *resource->data;
        percentage = dfu::progress_percentage(offset, resource->size);
    }
    report(Callback::STATUS_INFO, "Image ID: ", image_id, " flash write ", percentage,
           "% Completed...");
    const auto fields = dfu::three_words(image_id, offset, fragment_len);
    const dfu::Payload payload = dfu::fragment_payload(fields, image, offset, fragment_len);
    if (!payload.image_bytes.empty() && fragment_len > kMaximumFragment) {
        MARLO_LOG(error, "fragment of %u bytes of image %u is refused: more than %u", fragment_len,
                  image_id, kMaximumFragment);
        return;
    }
    send_aon_request(dfu::IMG_OFFSET_RESP, payload);
}

void marlo_fw_updater::sendSessionEndRes() {
    MARLO_LOG(debug, "sendSessionEndRes");
    const auto payload = dfu::three_words(0, 0, 0);
    if (send_aon_request(dfu::SESSION_END_RESP, payload.data(), payload.size()) >= 1) {
        MARLO_LOG(debug, "%s", kFinished);
        property_set(kUpdateDoneProperty, "1");
        update_finished = true;
        report(Callback::STATUS_SUCCESS, kFinished);
    }
    truncateFwResources();
}

int marlo_fw_updater::send_aon_request(uint32_t command_id, const uint8_t* payload,
                                       uint32_t payload_length) {
    dfu::Payload pieces;
    pieces.length = payload_length;
    if (payload != nullptr) {
        pieces.fields = {payload, payload_length};
    }
    return send_aon_request(command_id, pieces);
}

int marlo_fw_updater::send_aon_request(uint32_t command_id, const dfu::Payload& payload) {
    MARLO_LOG(debug, "send_aon_request");
    std::vector<uint8_t> message = message_buffer_.take();
    try {
        const uint32_t crc = dfu::build_message(message, command_id, payload);
        channel_user_log::sending(__func__, crc);
    } catch (const std::bad_alloc&) {
        MARLO_LOG(error, "no memory for message %u with %u bytes", command_id, payload.length);
        return 0;
    }
    int result = 0;
    if (glink_interface* transport = transport_for("send_aon_request")) {
        result = transport->send_request(message.data(), static_cast<unsigned>(message.size()));
    }
    message_buffer_.give_back(std::move(message));
    return result;
}
