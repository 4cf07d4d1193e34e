// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "comhandler/MarloComHandler.h"
#include "daemon/BootProgressObserver.h"
#include "daemon/DFUCallback.h"
#include "daemon/OneAtATime.h"
#include "daemon/SSRHandler.h"
#include "fwupdater/marlo_fw_updater.h"
#include "rma/marlo_rma.h"

// No co-processor, or a platform without support for it: the negated ENODEV.
inline constexpr int NO_AON_DEVICE = -19;

// The daemon's core: brings the co-processor up, decides whether its firmware must change, and
// keeps watch over the reset property for the rest of the process's life.
//
// Everything runs on the main thread, except
// - the reports of a download (DFUCallback), which come on the channel's reader thread and may
//   change the boot mode from there,
// - the reactions to a power-down and a power-up, which come on the restart listener's thread; a
//   push of misc data and the start of a download run on whichever of the two came first.
class MarloDaemon {
  public:
    MarloDaemon();
    MarloDaemon(const MarloDaemon&) = delete;
    MarloDaemon& operator=(const MarloDaemon&) = delete;

    // Brings the co-processor up, then polls "vendor.marlo_reset" once a second. Never returns.
    [[noreturn]] void startMarloDaemon();

    // Start-up (MarloDaemon.cpp).
    int initMarlo();             // 0, or negative on failure
    bool isTWMexit();            // whether the power-management chip reports a pending TWM exit
    int getMarloPILDevice();     // 0 when the co-processor's remoteproc instance was found, else 1
    int getMarloPILStatus();     // 1 running, 0 offline, 2 anything else, or unreadable
    int platformSubtypeCheck();  // 0 supported, -19 not supported, -1 not readable
    int startMarloPIL();         // 0, -19, or the result of defaultHandler
    void registerMarloSSREvent();  // starts the restart listener, once

    // Boot modes and updates (boot_mode.cpp).
    void handleBootComplete(int mode);
    void handleHostMode();
    void handleFlashMode();
    void changeBootmode(int mode);
    int defaultHandler();       // 0 when the fall-back to HOST mode came up, else -1
    int startFirmwareUpdate();  // 0; begins a download, after a push of misc data that is under way

    // The variant without flash (no_flash.cpp): gets its misc data pushed and the RMA service
    // started, after a boot and after each power-up. A call that comes while a download begins or
    // another push is under way is served after it, by the thread of that one.
    void handleNoFlashPsram();
    int startMiscDataFirmwareUpdate();  // 0; returns once the data are pushed, or have failed to be
    void on_aon_up();                   // the co-processor has been powered up
    void on_aon_down();                 // the co-processor has been powered down

    // To be set before startMarloDaemon; null for none.
    void set_boot_progress_observer(BootProgressObserver* observer) { observer_ = observer; }
    void notify(BootProgress code);

  private:
    void exit_twm();
    bool has_marlo_name(const char* instance, char* name);
    bool load_and_wait();
    void boot_complete(int priority, BootProgress mode);
    void begin_download();
    void push_misc_data_and_start_rma();

    std::atomic<bool> is_no_flash_ = false;  // powered up as the variant without flash; stays set
    char pil_state_path_[50] = {};           // empty until the remoteproc instance is found
    std::unique_ptr<MarloComHandler> com_handler_;
    // One for every session: it keeps nothing of any. Before the updater, whose last report may
    // still be on its way while it is destroyed.
    DFUCallback callback_;
    std::unique_ptr<marlo_fw_updater> updater_;
    std::unique_ptr<SSRHandler> ssr_handler_;  // null until registered
    std::unique_ptr<marlo_rma> rma_;
    // Starts of downloads and pushes of misc data: they share the updater's one transport.
    OneAtATime updates_;
    std::atomic<bool> is_push_waiting_ = false;  // for its turn
    // Null until a boot completes.
    std::atomic<wear_firmware_info_t*> firmware_version_ = nullptr;
    // Every record so far: whoever reads one may still be at it when the next boot completes.
    std::vector<std::unique_ptr<wear_firmware_info_t>> firmware_versions_;
    BootProgressObserver* observer_ = nullptr;
};

// The running daemon, set at the start of startMarloDaemon.
extern std::atomic<MarloDaemon*> g_marlo_daemon;

// A status word for inspection by a debugger: nothing in the daemon reads it.
enum DaemonState : int32_t {
    DAEMON_BOOT_FAILED = 0,  // even after the fall-back from FLASH to HOST mode
    DAEMON_STARTED = 1,
    DAEMON_INITIALISING = 2,  // stays so after a failed or skipped boot without fall-back
    DAEMON_INITIALISED = 3,
    DAEMON_NOT_STARTED = 5,
};
extern std::atomic<int32_t> g_daemon_state;
