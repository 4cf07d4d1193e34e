// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "sim/lab/lab_text.h"
#include "sim/options.h"

namespace sim {

// Shows many devices while they run. The base shows nothing.
class LabDisplay {
  public:
    LabDisplay() = default;
    virtual ~LabDisplay() = default;
    LabDisplay(const LabDisplay&) = delete;
    LabDisplay& operator=(const LabDisplay&) = delete;

    virtual void ended(const DeviceState&) {}
    // To be called often; shows something only when it is time to.
    virtual void refresh(const DeviceStates&, Time) {}
    virtual void resized() {}  // the terminal
    // The last call.
    virtual void finish(const DeviceStates&, Time) {}
};

// The one for standard output. `title`: what is done, on how many devices.
std::unique_ptr<LabDisplay> make_lab_display(const Options& options, const std::string& title);

}  // namespace sim
