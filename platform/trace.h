// SPDX-License-Identifier: Apache-2.0
#pragma once

#ifdef __ANDROID__
#define ATRACE_TAG ATRACE_TAG_HAL
#include <cutils/trace.h>
#else
#define ATRACE_BEGIN(name)
#define ATRACE_END()
#endif

namespace os {

// A section of the system trace, category `hal`, from here to the end of the scope. On any thread;
// sections of one thread nest. Where there is no system trace this is nothing.
class TraceSection {
  public:
    // `name` is copied.
    explicit TraceSection([[maybe_unused]] const char* name) { ATRACE_BEGIN(name); }
    ~TraceSection() { ATRACE_END(); }
    TraceSection(const TraceSection&) = delete;
    TraceSection& operator=(const TraceSection&) = delete;
};

}  // namespace os
