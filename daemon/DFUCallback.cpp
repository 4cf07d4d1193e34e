// SPDX-License-Identifier: Apache-2.0
#include "daemon/DFUCallback.h"

#include <android/log.h>
#include <cutils/properties.h>

#include "comhandler/MarloComHandler.h"
#include "daemon/MarloDaemon.h"
#include "daemon/property_names.h"

namespace {

void log_report(const char* function, const std::string& message) {
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "%s: %s", function, message.c_str());
}

}  // namespace

DFUCallback::DFUCallback(MarloComHandler* com_handler, MarloDaemon* daemon)
    : com_handler_(com_handler), daemon_(daemon) {}

void DFUCallback::handleDFUResponse(std::string message, Status status) {
    switch (status) {
        case STATUS_INFO:
            return;
        case STATUS_STARTED:
        case STATUS_ERASE_DONE:
        case STATUS_ERROR:
        case STATUS_ENDED:
            log_report(__func__, message);
            return;
        case STATUS_SUCCESS:
            log_report(__func__, message);
            __android_log_print(ANDROID_LOG_DEBUG, nullptr, "%s: Changing boot mode to FLASH",
                                __func__);
            daemon_->notify(BOOT_PROGRESS_FINISHED);
            daemon_->changeBootmode(FLASH);
            return;
        case STATUS_CHANNEL_ERROR:
            log_report(__func__, message);
            com_handler_->set_marlo_boot_status(BOOT_STATUS_MAIN_FIRMWARE);
            return;
    }
}

void DFUCallback::handleSHMResponse(std::string message, Status status) {
    switch (status) {
        case STATUS_INFO:
            return;
        case STATUS_ERASE_DONE:
        case STATUS_ERROR:
        case STATUS_ENDED:
        case STATUS_CHANNEL_ERROR:
            log_report(__func__, message);
            return;
        case STATUS_STARTED:
            log_report(__func__, message);
            com_handler_->set_marlo_boot_status(BOOT_STATUS_MISC_DATA_STARTED);
            property_set(kMiscUpdateProperty, "0");
            return;
        case STATUS_SUCCESS:
            log_report(__func__, message);
            com_handler_->set_marlo_boot_status(BOOT_STATUS_MISC_DATA_FINISHED);
            property_set(kMiscUpdateProperty, "1");
            return;
    }
}

void DFUCallback::onDFUStateRecived(DFUState state) {
    switch (state) {
        case DFUState::INIT:
            __android_log_print(ANDROID_LOG_DEBUG, nullptr,
                                "Marlo DFU in init state. We can perform firmware update.");
            return;
        case DFUState::INFO_REQ:
        case DFUState::OFFSET_REQ:
        case DFUState::SESSION_END_REQ:
        case DFUState::CANCEL_UPDATE_REQ:
            __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Firmware update in progress.");
            return;
    }
}
