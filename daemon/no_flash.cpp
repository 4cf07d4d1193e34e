// SPDX-License-Identifier: Apache-2.0
// The variant without flash: it forgets all it was given when its power goes, so that each power-up
// pushes the misc data again and opens the RMA channel anew.
#include <android/log.h>
#include <cutils/properties.h>

#include <cstdlib>

#include "daemon/MarloDaemon.h"
#include "daemon/property_names.h"
#include "platform/os.h"

namespace {

// Time for the co-processor to take over the last packets before their channel is closed.
constexpr unsigned int kMiscSettleSeconds = 2;

}  // namespace

// The boot (main thread) and a power-up (listener) may come at the same time. Power-ups that come
// while one waits for its turn are served with it.
void MarloDaemon::handleNoFlashPsram() {
    if (is_push_waiting_.exchange(true)) {
        return;
    }
    updates_.run([this] {
        is_push_waiting_ = false;
        push_misc_data_and_start_rma();
    });
}

void MarloDaemon::push_misc_data_and_start_rma() {
    __android_log_print(ANDROID_LOG_INFO, nullptr,
                        "found NOFLASH_PSRAM AON, do misc_data_fW_update");
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(kMiscUpdateProperty, value, "0");
    if (atoi(value) != 1) {
        startMiscDataFirmwareUpdate();
    }
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "starting rma connection");
    rma_->startMarloRmaConnection();
}

int MarloDaemon::startMiscDataFirmwareUpdate() {
    if (updater_ == nullptr) {
        return 0;
    }
    updater_->startMarloSHMUpdater(&callback_);
    updater_->marloMiscDataUpdateReq();
    os::sleep(kMiscSettleSeconds);
    updater_->endMarloSHMUpdater();
    return 0;
}

void MarloDaemon::on_aon_up() {
    __android_log_print(ANDROID_LOG_INFO, nullptr, "%s: called\n", __func__);
    if (updater_->is_psram_noflash(firmware_version_) == 0) {
        is_no_flash_ = true;
        handleNoFlashPsram();
    }
}

void MarloDaemon::on_aon_down() {
    __android_log_print(ANDROID_LOG_INFO, nullptr, "%s: called\n", __func__);
    if (is_no_flash_) {
        property_set(kMiscUpdateProperty, "0");
    }
}
