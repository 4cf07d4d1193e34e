// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "comhandler/wear_firmware_info.h"

// Boot mode of the co-processor as the control device reports it.
enum MarloBootMode {
    HOST = 0,   // loaded by the host; the only mode in which firmware can be downloaded
    FLASH = 1,  // boots from its own flash
};

// What the daemon reports of the co-processor through set_marlo_boot_status.
enum MarloBootStatus {
    BOOT_STATUS_MAIN_FIRMWARE = 1,  // main firmware runs, or whether it should change is unknown
    BOOT_STATUS_MISC_DATA_STARTED = 2,
    BOOT_STATUS_MISC_DATA_FINISHED = 3,
};

// What every command hands to the control device's driver: 32 bytes, little-endian words. Words
// that a command does not use are 0.
struct marlo_com_ioctl_req {
    uint32_t value;  // boot mode, boot status; for the reset the address of the data word
    uint32_t reserved[4];
    uint32_t cmd;
    uint32_t count;         // 1 for the reset, which carries a data word
    uint32_t reply_buffer;  // address of a wear_firmware_info_t for the version query
};

// The same in a 32-bit and in a 64-bit build: no word may become a pointer or a long.
static_assert(sizeof(marlo_com_ioctl_req) == 32 && alignof(marlo_com_ioctl_req) == 4);
static_assert(std::is_same_v<decltype(marlo_com_ioctl_req::value), uint32_t>);
static_assert(std::is_same_v<decltype(marlo_com_ioctl_req::reply_buffer), uint32_t>);
static_assert(offsetof(marlo_com_ioctl_req, cmd) == 20);
static_assert(offsetof(marlo_com_ioctl_req, count) == 24);
static_assert(offsetof(marlo_com_ioctl_req, reply_buffer) == 28);

// The co-processor's control device, "/dev/marlo_com_dev". Each command opens the device, issues
// one ioctl and closes it again; a busy device is tried for 15 seconds, anything else fails at
// once. Every failure is logged here. Stateless, so any thread may call any instance.
class MarloComHandler {
  public:
    // The process's instance, made on first use and never destroyed.
    static MarloComHandler* getInstance();

    // The SPI bus is shared with the co-processor; whoever loads or downloads marks it busy.
    void marlocomSpiBusy();
    void marlocomSpiFree();

    void marloReset();
    void marloSoftReset();
    void marloTWMexit();
    void marloUnload();

    // 0 when the co-processor was loaded, in the boot mode set last; otherwise the ioctl's result,
    // or -1 when the device could not be opened.
    int marloLoad();

    // 0, or negative on failure.
    int set_marlo_boot_mode(int mode);

    // The mode as the driver answers it (a MarloBootMode, if it keeps its word), or negative.
    int get_marlo_boot_mode();

    // Has the driver save a RAM dump. 0, or negative on failure.
    int cmd_save_aon_dump();

    // Takes a MarloBootStatus. 0, or negative on failure.
    int set_marlo_boot_status(int status);

    // Version of the running firmware, asked for up to 14 times, one second apart, while
    // "vendor.marlo.boot_complete" is unset or the query fails. Null when the device cannot be
    // opened or the last query failed; zero-filled when the boot never completed.
    std::unique_ptr<wear_firmware_info_t> get_current_aon_fw_version();
};
