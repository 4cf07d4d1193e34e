// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdarg>
#include <cstddef>

// The text of one log line. Over twenty lines belong to each fragment that is served, and printf
// would spend more time on them than everything else in the daemon spends on the fragment.
namespace log_line {

// What vsnprintf(into, size, format, arguments) writes, cut to `size` bytes with the NUL; `size` is
// at least 1. Quick with %s and with %d, %u, %x of every length that is plain, l, ll or z;
// anything else in the format, and a number that does not fit, leaves the whole line to vsnprintf.
// Safe on any thread.
[[gnu::format(printf, 3, 0)]] void format(char* into, size_t size, const char* format,
                                          va_list arguments);

}  // namespace log_line
