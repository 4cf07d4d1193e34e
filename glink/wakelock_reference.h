// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "comhandler/client_wakelock.h"
#include "daemon/marlo_deamon_log.h"

// One reference on the wakelock, for as long as an operation on the channel lasts; logs in that
// operation's name.
class WakelockReference {
  public:
    WakelockReference(client_wakelock* wakelock, const char* operation)
        : wakelock_(wakelock), operation_(operation) {
        MARLO_LOG_FOR(operation_, debug, "acquiring wakelock");
        wakelock_->get_n_locks(1);
    }
    ~WakelockReference() {
        MARLO_LOG_FOR(operation_, debug, "releasing wakelock");
        wakelock_->put_n_locks(1);
    }
    WakelockReference(const WakelockReference&) = delete;
    WakelockReference& operator=(const WakelockReference&) = delete;

  private:
    client_wakelock* wakelock_;
    const char* operation_;
};
