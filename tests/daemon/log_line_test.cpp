// SPDX-License-Identifier: Apache-2.0
#include "daemon/log_line.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <string>

namespace {

// Both see the same format and arguments, and a buffer of the same size, with bytes in it.
[[gnu::format(printf, 2, 3)]] void expect_as_printf(size_t size, const char* format, ...) {
    std::string quick(size, '#');
    std::string expected(size, '#');
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    log_line::format(quick.data(), size, format, arguments);
    vsnprintf(expected.data(), size, format, again);
    va_end(again);
    va_end(arguments);
    // Behind the NUL either may have left what it likes.
    EXPECT_STREQ(quick.c_str(), expected.c_str()) << "in " << size << " bytes";
}

TEST(LogLine, IsWhatPrintfWrites) {
    constexpr size_t kEnough = 200;
    expect_as_printf(kEnough, "%s", "");
    expect_as_printf(kEnough, "no conversion\n");
    expect_as_printf(kEnough, "%s:%d, %s|%d|%u|%x", "function", 12, "text", -1, UINT_MAX, 0xBEEFu);
    expect_as_printf(kEnough, "%d %d %ld %ld %lld %lld", INT_MIN, INT_MAX, LONG_MIN, LONG_MAX,
                     LLONG_MIN, LLONG_MAX);
    expect_as_printf(kEnough, "%lu %llu %lx %llx %zu %zx", ULONG_MAX, ULLONG_MAX, ULONG_MAX,
                     ULLONG_MAX, SIZE_MAX, SIZE_MAX);
    expect_as_printf(kEnough, "%zd %d", static_cast<ssize_t>(-5), 7);
    // What is left to printf, in the middle of a line too.
    expect_as_printf(kEnough, "%d %5d|%-5d|%05x %s", 1, 2, 3, 4u, "end");
    expect_as_printf(kEnough, "%s %p %c %% %.5f %lf %3s %.2s %o", "text",
                     static_cast<const void*>(&kEnough), 'c', 2.5, 1.0, "a", "abc", 8u);
    const char* volatile nothing = nullptr;
    expect_as_printf(kEnough, "%d %s %d", 1, nothing, 2);
}

TEST(LogLine, IsCutWherePrintfCutsIt) {
    for (size_t size = 1; size < 40; ++size) {
        expect_as_printf(size, "text %s", "of an argument");
        expect_as_printf(size, "%d%x%llu", -123456, 0xABCDEFu, 18446744073709551615ull);
        expect_as_printf(size, "%s %5d end", "text", 42);
    }
}

}  // namespace
