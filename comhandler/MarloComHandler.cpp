// SPDX-License-Identifier: Apache-2.0
#include "comhandler/MarloComHandler.h"

#include <android/log.h>
#include <cutils/properties.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "comhandler/device_memory.h"
#include "platform/os.h"

namespace {

constexpr const char* kDevice = "/dev/marlo_com_dev";
constexpr int kOpenAttempts = 15;
constexpr unsigned int kOpenRetrySeconds = 1;
// A freshly loaded co-processor answers only once it has booted.
constexpr int kVersionAttempts = 14;
constexpr unsigned int kVersionRetrySeconds = 1;

// Request numbers of the driver: type 'V', a payload of 32 bytes.
constexpr uint32_t kSpiFree = 0x80205603;
constexpr uint32_t kSpiBusy = 0x80205604;
constexpr uint32_t kReset = 0xc0205605;
constexpr uint32_t kIpcCommand = 0xc0205608;
constexpr uint32_t kBootCommand = 0xc0205609;
// Their payload is what the kernel copies.
constexpr bool has_block_as_payload(uint32_t request) {
    return (request >> 16 & 0x3FFF) == sizeof(marlo_com_ioctl_req);
}
static_assert(has_block_as_payload(kSpiFree) && has_block_as_payload(kSpiBusy) &&
              has_block_as_payload(kReset) && has_block_as_payload(kIpcCommand) &&
              has_block_as_payload(kBootCommand));

// Command codes, the request block's `cmd`.
constexpr uint32_t kSoftReset = 0;
constexpr uint32_t kTwmExit = 1;
constexpr uint32_t kLoad = 3;
constexpr uint32_t kGetVersion = 3;  // of the IPC command
constexpr uint32_t kUnload = 4;
constexpr uint32_t kSetBootMode = 5;
constexpr uint32_t kGetBootMode = 6;
constexpr uint32_t kSaveDump = 7;
constexpr uint32_t kSetBootStatus = 8;
constexpr uint32_t kResetCommand = 20;
constexpr uint32_t kResetData = 0x08000000;  // fixed by the driver

std::atomic<MarloComHandler*> g_instance{nullptr};
std::mutex g_instance_mutex;

int open_device(const char* path, int flags) {
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        const int fd = os::open(path, flags);
        if (fd >= 0) {
            return fd;
        }
        if (errno != EBUSY) {
            __android_log_print(ANDROID_LOG_ERROR, nullptr, "Failed to open the marlocom_dev");
            return -1;
        }
        __android_log_print(ANDROID_LOG_ERROR, nullptr,
                            "marlocom_dev is busy, retrying in %d seconds...\n",
                            static_cast<int>(kOpenRetrySeconds));
        os::sleep(kOpenRetrySeconds);
    }
    __android_log_print(ANDROID_LOG_ERROR, nullptr,
                        "Failed to open marlocom_dev after multiple attempts\n");
    return -1;
}

// The open device of one command; `name` is what the command's message calls it.
class OpenDevice {
  public:
    explicit OpenDevice(const char* name) : fd_(open_device(kDevice, O_RDWR)) {
        if (fd_ < 0) {
            __android_log_print(ANDROID_LOG_ERROR, nullptr, "Cannot open %s node fd =%d\n", name,
                                fd_);
        }
    }
    ~OpenDevice() {
        if (fd_ >= 0) {
            os::close(fd_);
        }
    }
    OpenDevice(const OpenDevice&) = delete;
    OpenDevice& operator=(const OpenDevice&) = delete;

    bool is_open() const { return fd_ >= 0; }
    int ioctl(uint32_t request, marlo_com_ioctl_req& block) const {
        return os::ioctl(fd_, request, &block);
    }

  private:
    int fd_;
};

enum class Failure { kNonZero, kNegative };  // the results that a command reports as failed

struct Command {
    uint32_t request;
    uint32_t cmd;
    const char* failure_message;
    Failure failure = Failure::kNonZero;
    const char* device_name = "marlocom_dev";
    android_LogPriority priority = ANDROID_LOG_ERROR;
};

int issue(const Command& command, marlo_com_ioctl_req block) {
    const OpenDevice device(command.device_name);
    if (!device.is_open()) {
        return -1;
    }
    block.cmd = command.cmd;
    const int result = device.ioctl(command.request, block);
    const bool failed = command.failure == Failure::kNonZero ? result != 0 : result < 0;
    if (failed) {
        __android_log_print(command.priority, nullptr, "%s", command.failure_message);
    }
    return result;
}

int issue(const Command& command, int value = 0) {
    marlo_com_ioctl_req block{};
    block.value = static_cast<uint32_t>(value);
    return issue(command, block);
}

bool is_boot_complete() {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get("vendor.marlo.boot_complete", value, "0");
    return atoi(value) != 0;
}

// Result of the last query: 0 where it was answered or never issued.
int query_version(const OpenDevice& device, const DeviceMemory& reply) {
    int result = 0;
    for (int attempt = 1; attempt <= kVersionAttempts; ++attempt) {
        if (is_boot_complete()) {
            marlo_com_ioctl_req block{};
            block.cmd = kGetVersion;
            block.reply_buffer = reply.address();
            result = device.ioctl(kIpcCommand, block);
            if (result == 0) {
                break;
            }
            __android_log_print(ANDROID_LOG_DEBUG, nullptr,
                                "%s: Marlo boot done, but get version fail-retry:%d",
                                "get_current_aon_fw_version", attempt);
        } else {
            __android_log_print(ANDROID_LOG_DEBUG, nullptr,
                                "%s: Marlo boot not completed, retry:%d",
                                "get_current_aon_fw_version", attempt);
        }
        os::sleep(kVersionRetrySeconds);
    }
    return result;
}

std::unique_ptr<wear_firmware_info_t> copy_record(const DeviceMemory& reply) {
    auto record = std::make_unique<wear_firmware_info_t>();
    std::memcpy(record.get(), reply.data(), sizeof(*record));
    for (char* text : {record->apps_version, record->dsp_version, record->bt_version}) {
        text[sizeof(record->apps_version) - 1] = '\0';
    }
    return record;
}

void log_record(const wear_firmware_info_t& record) {
    const uint32_t version = record.kapi_version;
    __android_log_print(ANDROID_LOG_INFO, nullptr, "KAPI Ver: %d.%d.%d\n",
                        static_cast<int>(version >> 24), static_cast<int>((version >> 16) & 0xFF),
                        static_cast<int>(version & 0xFFFF));
    __android_log_print(ANDROID_LOG_INFO, nullptr, "apps_tbx7700: %s\n", record.apps_version);
    __android_log_print(ANDROID_LOG_INFO, nullptr, "dsp_tbx7700: %s\n", record.dsp_version);
    __android_log_print(ANDROID_LOG_INFO, nullptr, "bt_tbx7700: %s\n", record.bt_version);
}

}  // namespace

MarloComHandler* MarloComHandler::getInstance() {
    MarloComHandler* instance = g_instance.load(std::memory_order_acquire);
    if (instance == nullptr) {
        const std::lock_guard lock(g_instance_mutex);
        instance = g_instance.load(std::memory_order_relaxed);
        if (instance == nullptr) {
            instance = new MarloComHandler();
            g_instance.store(instance, std::memory_order_release);
        }
    }
    return instance;
}

void MarloComHandler::marlocomSpiBusy() {
    issue({kSpiBusy, 0, "SPI busy failed"});
}

void MarloComHandler::marlocomSpiFree() {
    issue({kSpiFree, 0, "SPI free failed"});
}

void MarloComHandler::marloReset() {
    const DeviceMemory data(sizeof(kResetData));
    if (!data.valid()) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr,
                            "No memory below 4 GiB for the reset's data word: %s", strerror(errno));
        return;
    }
    std::memcpy(data.data(), &kResetData, sizeof(kResetData));
    marlo_com_ioctl_req block{};
    block.value = data.address();
    block.count = 1;
    issue({kReset, kResetCommand, "\t***** Marlo reset failed *****\t", Failure::kNonZero,
           "marlocom_dev", ANDROID_LOG_DEBUG},
          block);
}

void MarloComHandler::marloSoftReset() {
    issue({kBootCommand, kSoftReset, "\t***** Marlo soft reset failed *****\t"});
}

void MarloComHandler::marloTWMexit() {
    issue({kBootCommand, kTwmExit, "Send TWM_EXIT flag failed"});
}

int MarloComHandler::marloLoad() {
    return issue(
        {kBootCommand, kLoad, "Send MARLO_LOAD flag failed", Failure::kNonZero, "marlo_com_dev"});
}

void MarloComHandler::marloUnload() {
    issue({kBootCommand, kUnload, "Send MARLO_UNLOAD flag failed"});
}

int MarloComHandler::set_marlo_boot_mode(int mode) {
    return issue({kBootCommand, kSetBootMode, "Send SET_BOOT_MODE ioctl failed", Failure::kNegative,
                  "marlo_com_dev"},
                 mode);
}

int MarloComHandler::get_marlo_boot_mode() {
    return issue({kBootCommand, kGetBootMode, "Send GET_BOOT_MODE ioctl failed", Failure::kNegative,
                  "marlo_com_dev"});
}

int MarloComHandler::cmd_save_aon_dump() {
    return issue({kBootCommand, kSaveDump, "Send SEND_BOOT_CMD ioctl failed", Failure::kNegative,
                  "kz_com_dev"});
}

int MarloComHandler::set_marlo_boot_status(int status) {
    return issue({kBootCommand, kSetBootStatus, "Send BOOT_STATUS ioctl failed", Failure::kNegative,
                  "marlo_com_dev"},
                 status);
}

std::unique_ptr<wear_firmware_info_t> MarloComHandler::get_current_aon_fw_version() {
    const OpenDevice device("marlo_com_dev");
    if (!device.is_open()) {
        return nullptr;
    }
    const DeviceMemory reply(sizeof(wear_firmware_info_t));
    if (!reply.valid()) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr,
                            "No memory below 4 GiB for the version record: %s", strerror(errno));
        return nullptr;
    }
    if (query_version(device, reply) < 0) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "Send SEND_IPC_CMD failed to get version");
        return nullptr;
    }
    auto record = copy_record(reply);
    log_record(*record);
    return record;
}
