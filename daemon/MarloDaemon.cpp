// SPDX-License-Identifier: Apache-2.0
#include "daemon/MarloDaemon.h"

#include <android/log.h>
#include <cutils/properties.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/file.h"
#include "platform/os.h"

std::atomic<MarloDaemon*> g_marlo_daemon{nullptr};
std::atomic<int32_t> g_daemon_state{DAEMON_NOT_STARTED};

namespace {

constexpr const char* kRemoteprocDirectory = "/sys/class/remoteproc/";
constexpr const char* kInstancePrefix = "remoteproc";
constexpr const char* kMarloName = "soc:zeno,rproc-marlo";
constexpr const char* kTwmExitPath = "/sys/class/pmic-lpm/pmic_twm_exit";
constexpr const char* kSubtypePath = "/sys/devices/soc0/platform_subtype_id";
constexpr const char* kRamdumpProperty = "persist.vendor.ssr.enable_ramdumps";

// Names and states of remoteproc instances: what is read of them, and a NUL behind it.
constexpr size_t kSysfsTextBytes = 256;
constexpr size_t kTwmTextBytes = 20;
constexpr size_t kSubtypeBytes = 2;  // subtypes 0 to 99
// Paths of kernel files are bounded; a longer one is cut and then names no file.
constexpr size_t kPathBytes = 50;

constexpr unsigned int kLoadSeconds = 1;
constexpr unsigned int kResetPollSeconds = 1;

std::string instance_path(const char* instance, const char* file) {
    return (std::string(kRemoteprocDirectory) + "/" + instance + "/" + file)
        .substr(0, kPathBytes - 1);
}

int integer_property(const char* name, char (&value)[PROPERTY_VALUE_MAX],
                     const char* default_value) {
    property_get(name, value, default_value);
    return atoi(value);
}

}  // namespace

MarloDaemon::MarloDaemon()
    : com_handler_(std::make_unique<MarloComHandler>()),
      callback_(com_handler_.get(), this),
      updater_(std::make_unique<marlo_fw_updater>()),
      rma_(std::make_unique<marlo_rma>()) {}

void MarloDaemon::startMarloDaemon() {
    __android_log_print(ANDROID_LOG_INFO, nullptr, "Start Marlo Daemon");
    g_marlo_daemon = this;
    g_daemon_state = DAEMON_STARTED;
    getMarloPILDevice();
    if (initMarlo() == 0) {
        g_daemon_state = DAEMON_INITIALISED;
    }
    char value[PROPERTY_VALUE_MAX] = {};
    while (true) {
        if (integer_property("vendor.marlo_reset", value, nullptr) == 1) {
            __android_log_print(ANDROID_LOG_DEBUG, nullptr, "\t***** Marlo Reset Start *****\t");
            MarloComHandler::getInstance()->marloReset();
            property_set("vendor.marlo_reset", "0");
        }
        os::sleep(kResetPollSeconds);
    }
}

int MarloDaemon::initMarlo() {
    if (isTWMexit()) {
        exit_twm();
    }
    g_daemon_state = DAEMON_INITIALISING;
    registerMarloSSREvent();
    return startMarloPIL();
}

void MarloDaemon::registerMarloSSREvent() {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "%s: called\n", __func__);
    if (ssr_handler_ == nullptr) {
        ssr_handler_ = std::make_unique<SSRHandler>(this);
    }
}

// The dump that follows the exit is kept only while ramdumps are enabled.
void MarloDaemon::exit_twm() {
    __android_log_print(ANDROID_LOG_DEBUG, nullptr,
                        "TWM/RTOS exit,PIL will save dump only if it is crash");
    property_set(kRamdumpProperty, "1");
    com_handler_->marloTWMexit();
    com_handler_->cmd_save_aon_dump();
    property_set(kRamdumpProperty, "0");
}

bool MarloDaemon::isTWMexit() {
    const int fd = os::open(kTwmExitPath, O_RDONLY | O_CLOEXEC);
    // Descriptor 0 counts as a failure here.
    if (fd < 1) {
        return false;
    }
    char text[kTwmTextBytes + 1] = {};
    int state = -1;
    if (os::pread(fd, text, kTwmTextBytes, 0) >= 0) {
        sscanf(text, "%d", &state);
        __android_log_print(ANDROID_LOG_DEBUG, nullptr, "%s: Twm exit state = %d", __func__, state);
    } else {
        __android_log_print(ANDROID_LOG_DEBUG, nullptr, "%s: reading twm_exit fd failed", __func__);
    }
    os::close(fd);
    return state == 1;
}

int MarloDaemon::getMarloPILDevice() {
    char name[kSysfsTextBytes + 1] = {};
    DIR* const directory = os::opendir(kRemoteprocDirectory);
    if (directory == nullptr) {
        return 1;
    }
    bool found = false;
    while (!found) {
        const dirent* const entry = os::readdir(directory);
        if (entry == nullptr) {
            break;
        }
        __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Dir: %s", entry->d_name);
        const bool is_instance = entry->d_type == DT_DIR || entry->d_type == DT_LNK;
        if (is_instance && strncmp(entry->d_name, kInstancePrefix, strlen(kInstancePrefix)) == 0) {
            found = has_marlo_name(entry->d_name, name);
        }
    }
    os::closedir(directory);
    return found ? 0 : 1;
}

// Reads the name of a remoteproc instance over the one that was read before it; where it is the
// co-processor's, remembers the instance's state file.
bool MarloDaemon::has_marlo_name(const char* instance, char* name) {
    const std::string path = instance_path(instance, "name");
    const int fd = os::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "Unable to open file %s", path.c_str());
        return false;
    }
    os::read_up_to(fd, name, kSysfsTextBytes);
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "read: %s", name);
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "PIL device: %s - %s", path.c_str(), name);
    const bool is_marlo = strncmp(name, kMarloName, strlen(kMarloName)) == 0;
    if (is_marlo) {
        const std::string state_path = instance_path(instance, "state");
        memset(pil_state_path_, 0, sizeof(pil_state_path_));
        state_path.copy(pil_state_path_, sizeof(pil_state_path_) - 1);
        __android_log_print(ANDROID_LOG_DEBUG, nullptr, "PATH %s", pil_state_path_);
    }
    os::close(fd);
    return is_marlo;
}

int MarloDaemon::getMarloPILStatus() {
    char state[kSysfsTextBytes + 1] = {};
    if (os::read_file_up_to(pil_state_path_, state, kSysfsTextBytes) < 0) {
        return 2;
    }
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "marlofw state: %s", state);
    if (strncmp(state, "running", strlen("running")) == 0) {
        return 1;
    }
    return strncmp(state, "offline", strlen("offline")) == 0 ? 0 : 2;
}

int MarloDaemon::platformSubtypeCheck() {
    const int fd = os::open(kSubtypePath, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "Unable to open %s\n", kSubtypePath);
        return -1;
    }
    char subtype[kSubtypeBytes + 1] = {};
    const ssize_t count = os::read(fd, subtype, kSubtypeBytes);
    os::close(fd);
    if (count < 0) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "Unable to read %s\n", kSubtypePath);
        return -1;
    }
    return atoi(subtype) != 0 ? NO_AON_DEVICE : 0;
}

int MarloDaemon::startMarloPIL() {
    __android_log_print(ANDROID_LOG_INFO, nullptr, "Start Marlo loader\n");
    if (const int subtype = platformSubtypeCheck(); subtype != 0) {
        __android_log_print(ANDROID_LOG_INFO, nullptr,
                            "platform subtype: %d is not supported, skip marlo PIL", subtype);
        return NO_AON_DEVICE;
    }
    __android_log_print(ANDROID_LOG_INFO, nullptr,
                        "AON present and supported platform subtype: %d\n", 0);
    const int mode = com_handler_->get_marlo_boot_mode();
    if (mode == HOST) {
        __android_log_print(ANDROID_LOG_INFO, nullptr, " Marlo is in HOST Mode!\n");
        notify(BOOT_PROGRESS_HOST);
        notify(BOOT_PROGRESS_CURRENT);
    } else if (mode == FLASH) {
        __android_log_print(ANDROID_LOG_INFO, nullptr, " Marlo is in FLASH Mode!\n");
        notify(BOOT_PROGRESS_FLASH);
        char value[PROPERTY_VALUE_MAX] = {};
        if (integer_property("persist.vendor.zt_aon.dfu_update", value, "0") != 1) {
            notify(BOOT_PROGRESS_UPDATE);
            __android_log_print(ANDROID_LOG_INFO, nullptr, "zt_aon.dfu_update is 0, do fW_update");
            changeBootmode(HOST);
            startFirmwareUpdate();
            return 0;
        }
        notify(BOOT_PROGRESS_CURRENT);
    }
    if (getMarloPILStatus() != 1 && !load_and_wait()) {
        return defaultHandler();
    }
    handleBootComplete(com_handler_->get_marlo_boot_mode());
    return 0;
}

// The bus stays marked busy where the co-processor does not come up.
bool MarloDaemon::load_and_wait() {
    com_handler_->marlocomSpiBusy();
    const int result = com_handler_->marloLoad();
    os::sleep(kLoadSeconds);
    if (result != 0 || getMarloPILStatus() != 1) {
        return false;
    }
    com_handler_->marlocomSpiFree();
    return true;
}

void MarloDaemon::notify(BootProgress code) {
    if (observer_ != nullptr) {
        observer_->onBootProgress(code);
    }
}
