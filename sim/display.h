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
    // The last call: shows the final state and leaves the terminal as it was. `failures`: of a
    // session that failed, in words.
    virtual void finish(const Status&, Time, const std::vector<std::string>&) {}
};

}  // namespace sim
