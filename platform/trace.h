// SPDX-License-Identifier: Apache-2.0
#pragma once

#ifdef __ANDROID__
#define ATRACE_TAG ATRACE_TAG_HAL
#include <cutils/trace.h>
#endif

namespace os {

// A section of the system trace, category `hal`, from here to the end of the scope. On any thread;
// sections of one thread nest. Where there is no system trace this is nothing.
class TraceSection {
  public:
    TraceSection(const TraceSection&) = delete;
    TraceSection& operator=(const TraceSection&) = delete;
#ifdef __ANDROID__
    // `name` is copied.
    explicit TraceSection(const char* name) {
        ATRACE_BEGIN(name);
    }
    ~TraceSection() {
        ATRACE_END();
    }
#else
    explicit TraceSection(const char*) {}
#endif
};

}  // namespace os
