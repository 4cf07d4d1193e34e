// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "fwupdater/marlo_fw_updater.h"

class MarloComHandler;
class MarloDaemon;

// What the daemon does with the updater's reports: most are logged; the end of a download switches
// the co-processor back to FLASH mode. Runs on the thread that reports, mostly the channel's reader
// thread, and stays there for the seconds that a switch takes.
class DFUCallback : public marlo_fw_updater::Callback {
  public:
    DFUCallback(MarloComHandler* com_handler, MarloDaemon* daemon);

    void handleDFUResponse(std::string message, Status status) override;
    void handleSHMResponse(std::string message, Status status) override;
    void onDFUStateRecived(DFUState state) override;

  private:
    MarloComHandler* com_handler_;
    MarloDaemon* daemon_;
};
