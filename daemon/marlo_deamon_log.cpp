// SPDX-License-Identifier: Apache-2.0
#include "daemon/marlo_deamon_log.h"

#ifndef MARLO_STDERR_LOGGING
#define MARLO_STDERR_LOGGING 0
#endif

namespace marlo_deamon_log {
namespace {

log_level g_level = log_level::info;
const char* g_tag = "MarloDaemon";
constexpr bool kStderrLogging = MARLO_STDERR_LOGGING != 0;

}  // namespace

log_level get_level() {
    return g_level;
}
void set_level(log_level level) {
    g_level = level;
}
const char* get_tag() {
    return g_tag;
}
void set_tag(const char* tag) {
    g_tag = tag;
}
bool get_stderr_logging() {
    return kStderrLogging;
}

}  // namespace marlo_deamon_log
