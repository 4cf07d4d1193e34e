// SPDX-License-Identifier: Apache-2.0
#pragma once

// Told how far the co-processor's boot has come, for whoever shows it. The daemon works without
// one. Called on the main thread and, at the end of a download, on the channel's reader thread.
class BootProgressObserver {
  public:
    virtual void onBootProgress(int code) = 0;
    virtual ~BootProgressObserver() = default;
};

enum BootProgress {
    BOOT_PROGRESS_HOST = 0,      // is, or came up, in HOST mode
    BOOT_PROGRESS_FLASH = 1,     // is, or came up, in FLASH mode
    BOOT_PROGRESS_UPDATE = 2,    // an update is about to start or has been started
    BOOT_PROGRESS_FINISHED = 3,  // a download finished; the boot mode is being changed to FLASH
    BOOT_PROGRESS_CURRENT = 4,   // nothing to update
};
