// SPDX-License-Identifier: Apache-2.0
// What is done for each message that the co-processor sends.
#include <cstdlib>

#include "daemon/marlo_deamon_log.h"
#include "fwupdater/marlo_fw_updater.h"
#include "glink/channel_user_log.h"

void marlo_fw_updater::conn_res_event_cb(const uint8_t* data, uint32_t length) {
    channel_user_log::received(__func__);
    if (length > dfu::DFU_RX_BUFFER_SIZE) {
        // No message of the protocol is that long: the channel carries something else, and
        // whatever is answered may end up in flash.
        __android_log_print(ANDROID_LOG_FATAL, marlo_deamon_log::get_tag(),
                            "%s:%d, received message of %u bytes, longer than the %u bytes of the "
                            "longest one",
                            __func__, __LINE__, length, dfu::DFU_RX_BUFFER_SIZE);
        std::abort();
    }
    const dfu::ReceivedMessage message({data, length});
    const char* name = dfu::received_message_name(message.command_id());
    if (name == nullptr) {
        channel_user_log::invalid_command(__func__);
        report(Callback::STATUS_ERROR, "Received INVALID CMD RESP");
        return;
    }
    MARLO_LOG(debug, "GLINK_int received %s ", name);
    report_message(message, name);
    switch (message.command_id()) {
        case dfu::IMG_INFO_REQ:
            handle_image_info_request(message.image_id());
            break;
        case dfu::IMG_OFFSET_REQ:
            sendmarloImageOffsetRes(message.image_id(), message.offset(), message.fragment_len());
            break;
        case dfu::SESSION_END_REQ:
            sendSessionEndRes();
            break;
        case dfu::DFU_SPCL_OPERATION_RESP: {
            dfu_spcl_cmd_response response = message.special_response();
            handleDFUSplCmdResposnse(&response);
            break;
        }
        default:
            break;
    }
}

// What is reported before a message is acted upon.
void marlo_fw_updater::report_message(const dfu::ReceivedMessage& message, const char* name) {
    switch (message.command_id()) {
        case dfu::IMG_OFFSET_REQ:  // the answer reports the progress
            break;
        case dfu::IMG_INFO_REQ:
            if (callback != nullptr) {
                report(Callback::STATUS_INFO, "Time taken till from start = ", timeTaken());
            }
            report(Callback::STATUS_INFO, "Received MG_UPDT_RESP for ID: ", message.image_id());
            break;
        case dfu::SESSION_END_REQ:
            report(Callback::STATUS_INFO, "Received SESSION_END_REQ");
            if (callback != nullptr) {
                report(Callback::STATUS_INFO,
                       "Time taken in sec to update Firmware = ", timeTaken());
            }
            break;
        case dfu::DFU_SPCL_OPERATION_RESP:
            report(Callback::STATUS_INFO,
                   "Received DFU_SPCL_OPERATION_RESP response code: ", message.response_code());
            break;
        case dfu::CANCEL_UPDT_REQ:
        case dfu::CANCEL_UPDT_RESP:
            report(Callback::STATUS_ENDED, "Received ", name);
            break;
        default:
            report(Callback::STATUS_INFO, "Received ", name);
            break;
    }
}

void marlo_fw_updater::handle_image_info_request(uint32_t image_id) {
    sendmarloImageInfoRes(image_id);
    report(Callback::STATUS_INFO, "Updating Device firmware with ID: ", image_id);
}
