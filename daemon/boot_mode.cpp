// SPDX-License-Identifier: Apache-2.0
// What the daemon makes of a completed or failed boot: which firmware runs, whether it must
// change, and the way from FLASH to HOST mode and back.
#include <android/log.h>
#include <cutils/properties.h>

#include "daemon/MarloDaemon.h"
#include "daemon/property_names.h"
#include "platform/os.h"

namespace {

constexpr int kChangeAttempts = 3;
constexpr unsigned int kLoadSeconds = 1;
constexpr unsigned int kRetrySeconds = 1;

}  // namespace

void MarloDaemon::handleBootComplete(int mode) {
    property_set(kBootCompleteProperty, "1");
    firmware_versions_.push_back(com_handler_->get_current_aon_fw_version());
    firmware_version_ = firmware_versions_.back().get();
    if (mode == HOST) {
        boot_complete(ANDROID_LOG_ERROR, BOOT_PROGRESS_HOST);
        handleHostMode();
    } else if (mode == FLASH) {
        boot_complete(ANDROID_LOG_ERROR, BOOT_PROGRESS_FLASH);
        handleFlashMode();
    } else {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "Unknown marlo boot mode");
    }
}

void MarloDaemon::boot_complete(int priority, BootProgress mode) {
    __android_log_print(priority, nullptr, "Marlo boot complete in %s Mode!",
                        mode == BOOT_PROGRESS_HOST ? "HOST" : "FLASH");
    notify(mode);
}

void MarloDaemon::handleHostMode() {
    com_handler_->set_marlo_boot_status(BOOT_STATUS_MAIN_FIRMWARE);
    if (firmware_version_ == nullptr) {
        __android_log_print(ANDROID_LOG_INFO, nullptr, "invaid version info");
        return;
    }
    if (updater_->is_psram_noflash(firmware_version_) == 0) {
        handleNoFlashPsram();
    }
}

void MarloDaemon::handleFlashMode() {
    if (firmware_version_ == nullptr) {
        __android_log_print(
            ANDROID_LOG_ERROR, nullptr,
            "failed to get fw version! after re-tries, marlo is running with old firmware");
        com_handler_->set_marlo_boot_status(BOOT_STATUS_MAIN_FIRMWARE);
        return;
    }
    __android_log_print(ANDROID_LOG_INFO, nullptr, "do fw_version_check");
    if (updater_->fw_version_check(firmware_version_) < 0) {
        __android_log_print(ANDROID_LOG_DEBUG, nullptr,
                            "Version mis-match, switch2HOST, do fW_update");
        notify(BOOT_PROGRESS_UPDATE);
        changeBootmode(HOST);
        startFirmwareUpdate();
        return;
    }
    com_handler_->set_marlo_boot_status(BOOT_STATUS_MAIN_FIRMWARE);
    notify(BOOT_PROGRESS_CURRENT);
}

void MarloDaemon::changeBootmode(int mode) {
    com_handler_->set_marlo_boot_mode(mode);
    com_handler_->marloUnload();
    com_handler_->marlocomSpiBusy();
    bool is_up = false;
    for (int attempt = 0; attempt < kChangeAttempts && !is_up; ++attempt) {
        com_handler_->marloSoftReset();
        const int result = com_handler_->marloLoad();
        os::sleep(kLoadSeconds);
        is_up = result == 0 && g_marlo_daemon.load()->getMarloPILStatus() == 1;
        if (!is_up) {
            os::sleep(kRetrySeconds);
        }
    }
    if (!is_up) {
        com_handler_->marlocomSpiFree();
        return;
    }
    if (mode != FLASH) {
        // The bus stays marked busy: it belongs to the download that follows.
        boot_complete(ANDROID_LOG_INFO, BOOT_PROGRESS_HOST);
        return;
    }
    boot_complete(ANDROID_LOG_INFO, BOOT_PROGRESS_FLASH);
    property_set(kBootCompleteProperty, "1");
    com_handler_->marlocomSpiFree();
    com_handler_->set_marlo_boot_status(BOOT_STATUS_MAIN_FIRMWARE);
}

int MarloDaemon::defaultHandler() {
    if (com_handler_->get_marlo_boot_mode() != FLASH) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "Marlo boot failed in Host Mode.");
        return -1;
    }
    com_handler_->set_marlo_boot_mode(HOST);
    com_handler_->marloReset();
    const int result = com_handler_->marloLoad();
    os::sleep(kLoadSeconds);
    if (result != 0 || getMarloPILStatus() != 1) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr,
                            "Marlo boot fail even on fallback to host from flash");
        g_daemon_state = DAEMON_BOOT_FAILED;
        return -1;
    }
    __android_log_print(ANDROID_LOG_ERROR, nullptr,
                        "Fallback: Marlo boot complete in Host Mode, try DFU");
    notify(BOOT_PROGRESS_HOST);
    property_set(kBootCompleteProperty, "1");
    com_handler_->marlocomSpiFree();
    startFirmwareUpdate();
    return 0;
}

int MarloDaemon::startFirmwareUpdate() {
    if (updater_ != nullptr) {
        updates_.run([this] { begin_download(); });
    }
    return 0;
}

void MarloDaemon::begin_download() {
    updater_->startMarloDownloaderWithCallback(&callback_);
    updater_->eraseAllRAWPartitionAndContinueDownload();
    notify(BOOT_PROGRESS_UPDATE);
}
