// SPDX-License-Identifier: Apache-2.0
#include "daemon/log_line.h"

#include <sys/types.h>

#include <charconv>
#include <cstdio>
#include <system_error>

namespace log_line {
namespace {

// In a record, because a va_list may be an array, which cannot be handed on by reference.
struct Arguments {
    va_list list;
};

// Byte by byte: the pieces are short, and calls of the string functions would cost more.
class Line {
  public:
    Line(char* into, size_t size) : next_(into), end_(into + size - 1) {}

    void append(char byte) {
        if (next_ != end_) {
            *next_++ = byte;
        }
    }
    void append(const char* text) {
        while (*text != '\0' && next_ != end_) {
            *next_++ = *text++;
        }
    }
    // False where there is no room for all of it.
    template <typename Integer>
    bool append(Integer number, int base) {
        const auto [end, error] = std::to_chars(next_, end_, number, base);
        next_ = end;
        return error == std::errc();
    }
    void terminate() { *next_ = '\0'; }

  private:
    char* next_;
    char* end_;  // where the NUL has its place
};

enum class Length { kPlain, kLong, kLongLong, kSize };

Length take_length(const char*& format) {
    if (*format == 'z') {
        ++format;
        return Length::kSize;
    }
    if (*format != 'l') {
        return Length::kPlain;
    }
    ++format;
    if (*format != 'l') {
        return Length::kLong;
    }
    ++format;
    return Length::kLongLong;
}

// clang-tidy does not see the va_copy in format(), nor that the types that va_arg takes differ.
// NOLINTBEGIN(clang-analyzer-valist.Uninitialized,bugprone-branch-clone)
long long next_signed(Arguments& arguments, Length length) {
    switch (length) {
        case Length::kPlain:
            return va_arg(arguments.list, int);
        case Length::kLong:
            return va_arg(arguments.list, long);
        case Length::kLongLong:
            return va_arg(arguments.list, long long);
        case Length::kSize:
            return va_arg(arguments.list, ssize_t);
    }
    return 0;
}

unsigned long long next_unsigned(Arguments& arguments, Length length) {
    switch (length) {
        case Length::kPlain:
            return va_arg(arguments.list, unsigned int);
        case Length::kLong:
            return va_arg(arguments.list, unsigned long);
        case Length::kLongLong:
            return va_arg(arguments.list, unsigned long long);
        case Length::kSize:
            return va_arg(arguments.list, size_t);
    }
    return 0;
}

bool append_text(Line& line, Arguments& arguments) {
    const char* text = va_arg(arguments.list, const char*);
    if (text != nullptr) {
        line.append(text);
    }
    return text != nullptr;
}

// NOLINTEND(clang-analyzer-valist.Uninitialized,bugprone-branch-clone)

// `format` is behind the percent sign, and then behind the conversion. False: vsnprintf's.
bool convert(Line& line, const char*& format, Arguments& arguments) {
    const Length length = take_length(format);
    switch (*format++) {
        case 'd':
            return line.append(next_signed(arguments, length), 10);
        case 'u':
            return line.append(next_unsigned(arguments, length), 10);
        case 'x':
            return line.append(next_unsigned(arguments, length), 16);
        case 's':
            return length == Length::kPlain && append_text(line, arguments);
        default:
            return false;
    }
}

bool fill(Line& line, const char* format, Arguments& arguments) {
    while (*format != '\0') {
        const char byte = *format++;
        if (byte != '%') {
            line.append(byte);
        } else if (!convert(line, format, arguments)) {
            return false;
        }
    }
    line.terminate();
    return true;
}

}  // namespace

void format(char* into, size_t size, const char* format, va_list arguments) {
    Arguments own;
    va_copy(own.list, arguments);
    Line line(into, size);
    if (!fill(line, format, own)) {
        vsnprintf(into, size, format, arguments);
    }
    va_end(own.list);
}

}  // namespace log_line
