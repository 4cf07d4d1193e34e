// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "sim/coprocessor.h"

namespace sim {

// Shows a session while it runs. The base shows nothing.
class Display : public Observer {
  public:
    void event(const Event&) override {}
    // To be called often; draws only when it is time to.
    virtual void refresh(const Status&, Time) {}
    // The terminal has another size now.
    virtual void resized() {}
    // The last call: shows the final state and leaves the terminal as it was.
    struct Ending {
        bool failed;
        std::vector<std::string> failures;  // in words; those that the last line does not tell
    };
    virtual void finish(const Status&, Time, const Ending&) {}
};

}  // namespace sim
