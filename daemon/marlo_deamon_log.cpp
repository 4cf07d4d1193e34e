// SPDX-License-Identifier: Apache-2.0
#include "daemon/marlo_deamon_log.h"

#include <cstdarg>

#include "daemon/log_line.h"

namespace marlo_deamon_log {
namespace {

// Where __android_log_print cuts its lines.
constexpr size_t kLongestLine = 1024;

}  // namespace

void emit(log_level statement_class, const char* format, ...) {
    char line[kLongestLine];
    va_list arguments;
    va_start(arguments, format);
    log_line::format(line, sizeof(line), format, arguments);
    va_end(arguments);
    __android_log_write(priority_of(statement_class), get_tag(), line);
}

}  // namespace marlo_deamon_log
