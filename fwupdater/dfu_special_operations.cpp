// SPDX-License-Identifier: Apache-2.0
// Erasing the partitions and asking for the co-processor's state: how a download begins or resumes.
#include "daemon/marlo_deamon_log.h"
#include "fwupdater/marlo_fw_updater.h"
#include "platform/os.h"

namespace {

constexpr const char* kEraseFinished = "### Marlo Flash Erase finished. ###";

// One field of a state's details; nothing is said of a 0.
std::string detail(const char* label, uint32_t value) {
    return value == 0 ? "" : report_text::join(label, value);
}

// What a state is about.
std::string details_of(const dfu_spcl_cmd_response& response) {
    switch (static_cast<DFUState>(response.dfu_state)) {
        case DFUState::INFO_REQ:
            return detail(" Image ID: ", response.image_id);
        case DFUState::OFFSET_REQ:
            return detail(" Image ID: ", response.image_id) + detail(" offset: ", response.offset) +
                   detail(" fragment_len: ", response.fragment_len);
        case DFUState::INIT:
        case DFUState::SESSION_END_REQ:
        case DFUState::CANCEL_UPDATE_REQ:
            break;
    }
    return "";
}

}  // namespace

void marlo_fw_updater::eraseAllRAWPartitionAndContinueDownload() {
    MARLO_LOG(debug, "eraseAllRAWPartitionAndContinueDownload");
    if (begin_to_continue(__func__)) {
        eraseAllRAWPartition();
    }
}

void marlo_fw_updater::getCurrentDFUStateAndContinueDownload() {
    MARLO_LOG(debug, "getCurrentDFUStateAndContinueDownload");
    if (begin_to_continue(__func__)) {
        sendGetDFUStateReq();
    }
}

// From now on a reported state is acted upon. False without a transport.
bool marlo_fw_updater::begin_to_continue(const char* function) {
    if (glinkInterface == nullptr) {
        MARLO_LOG_FOR(function, error, "glinkInterface == nullptr");
        return false;
    }
    start_time = os::time();
    continue_download = true;
    return true;
}

void marlo_fw_updater::eraseAllRAWPartition() {
    MARLO_LOG(debug, "eraseAllRAWPartition");
    if (const ResourceList::Resource next = fw_resources.take_next_to_erase()) {
        report(Callback::STATUS_STARTED, "Erase Requested for partition: ", next->partition_name);
        sendRAWFlashEraseReq(static_cast<uint32_t>(next->offset),
                             static_cast<uint32_t>(next->xml_size));
    } else if (continue_download) {
        sendGetDFUStateReq();
    } else {
        report(Callback::STATUS_ERASE_DONE, kEraseFinished);
    }
}

void marlo_fw_updater::sendRAWFlashEraseReq(uint32_t offset, uint32_t length) {
    MARLO_LOG(debug, "sendRAWFlashEraseReq");
    const auto payload = dfu::three_words(dfu::SPCL_OP_RAW_FLASH_ERASE, offset, length);
    send_aon_request(dfu::DFU_SPCL_OPERATION_REQ, payload.data(), payload.size());
    report(Callback::STATUS_STARTED, "### Erasing Marlo Flash Content. ###");
    report(Callback::STATUS_INFO, "Going for erase from offset: ", offset, " to Length: ", length,
           "...");
}

void marlo_fw_updater::sendGetDFUStateReq() {
    MARLO_LOG(debug, "sendGetDFUStateReq");
    const auto payload = dfu::three_words(dfu::SPCL_OP_GET_DFU_STATE, 0, 0);
    send_aon_request(dfu::DFU_SPCL_OPERATION_REQ, payload.data(), payload.size());
    report(Callback::STATUS_STARTED, "### Getting Marlo DFU State. ###");
}

void marlo_fw_updater::handleDFUSplCmdResposnse(dfu_spcl_cmd_response* response) {
    MARLO_LOG(debug, "handleDFUSplCmdResposnse");
    if (response->operation == dfu::SPCL_OP_RAW_FLASH_ERASE) {
        report(Callback::STATUS_INFO,
               response->response_code == 0 ? kEraseFinished : "### Marlo Flash Erase Failed. ###");
        eraseAllRAWPartition();
    } else if (response->operation == dfu::SPCL_OP_GET_DFU_STATE) {
        if (response->response_code == 0) {
            handle_state(*response);
        } else {
            report(Callback::STATUS_ERROR, "Get Marlo DFU State Failed.");
        }
    }
}

// The co-processor waits for its answer; people hear of the state afterwards.
void marlo_fw_updater::handle_state(const dfu_spcl_cmd_response& response) {
    const bool continuing = continue_download;
    if (continuing) {
        continue_from(response);
    }
    if (Callback* sink = callback) {
        const auto state = static_cast<DFUState>(response.dfu_state);
        report(Callback::STATUS_INFO, "Current Marlo DFU state = ", dfu::state_name(state), " ",
               details_of(response));
        if (!continuing) {
            sink->onDFUStateRecived(state);
        }
    }
}

void marlo_fw_updater::continue_from(const dfu_spcl_cmd_response& response) {
    switch (static_cast<DFUState>(response.dfu_state)) {
        case DFUState::INIT:
            marloFirmwareUpdateReq();
            break;
        case DFUState::INFO_REQ:
            sendmarloImageInfoRes(response.image_id);
            break;
        case DFUState::OFFSET_REQ:
            sendmarloImageOffsetRes(response.image_id, response.offset, response.fragment_len);
            break;
        case DFUState::SESSION_END_REQ:
            sendSessionEndRes();
            break;
        case DFUState::CANCEL_UPDATE_REQ:
            break;
    }
}
