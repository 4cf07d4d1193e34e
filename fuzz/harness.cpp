// SPDX-License-Identifier: Apache-2.0
#include "fuzz/harness.h"

#include <android/log.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "comhandler/client_wakelock.h"
#include "daemon/marlo_deamon_log.h"

namespace fuzz {
namespace {

std::atomic<size_t> g_log_lines = 0;
std::atomic<int> g_wakelocks = 0;

void take_log_line(const __android_logger_data*, const char* text) {
    static const bool is_shown = std::getenv("FUZZ_LOG") != nullptr;
    ++g_log_lines;
    const std::string_view line(text);
    g_wakelocks += line.ends_with(" acquiring wakelock") ? 1 : 0;
    g_wakelocks -= line.ends_with(" releasing wakelock") ? 1 : 0;
    must(!line.starts_with("put_n_locks:"), "%s", text);  // more given back than taken
    if (is_shown) {
        fprintf(stderr, "%s\n", text);
    }
}

}  // namespace

void must(bool holds, const char* format, ...) {
    if (holds) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    fputs("does not hold: ", stderr);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): not after va_start
    vfprintf(stderr, format, arguments);
    fputc('\n', stderr);
    va_end(arguments);
    std::abort();
}

void begin() {
    scripted::reset_platform();
    // The process's wakelock opens its files once: now, while there are none.
    client_wakelock::get_instance();
    marlo_deamon_log::set_level(marlo_deamon_log::log_level::verbose);
    g_log_lines = 0;
    g_wakelocks = 0;
    __android_log_set_logger(take_log_line);
}

size_t log_lines() {
    return g_log_lines;
}

int wakelocks_held() {
    return g_wakelocks;
}

uint32_t Input::below(uint32_t count) {
    if (bytes_.empty()) {
        return 0;
    }
    const uint8_t decision = bytes_.back();
    bytes_ = bytes_.first(bytes_.size() - 1);
    return decision % count;
}

std::span<const uint8_t> Input::take(size_t size) {
    const std::span<const uint8_t> taken = bytes_.first(std::min(size, bytes_.size()));
    bytes_ = bytes_.subspan(taken.size());
    return taken;
}

std::string Input::text(size_t size) {
    return text_of(take(size));
}

uint32_t Input::word() {
    return word_at(take(4), 0);
}

ExactCopy::ExactCopy(std::span<const uint8_t> bytes)
    : size_(static_cast<uint32_t>(bytes.size())), memory_(new uint8_t[bytes.size()]) {
    std::copy(bytes.begin(), bytes.end(), memory_.get());
}

uint32_t crc_of(std::initializer_list<std::span<const uint8_t>> pieces) {
    uLong crc = crc32(0, nullptr, 0);
    for (const std::span<const uint8_t> piece : pieces) {
        crc = piece.empty() ? crc : crc32(crc, piece.data(), static_cast<uInt>(piece.size()));
    }
    return static_cast<uint32_t>(crc);
}

// One comparison, since fragments may be long: each byte with the one before it.
bool all_zero(std::span<const uint8_t> bytes) {
    return bytes.empty() ||
           (bytes[0] == 0 && std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

uint32_t word_at(std::span<const uint8_t> bytes, size_t offset) {
    uint32_t value = 0;
    for (size_t index = 0; index < 4 && offset + index < bytes.size(); ++index) {
        value |= uint32_t{bytes[offset + index]} << (8 * index);
    }
    return value;
}

void append_word(Bytes& bytes, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
}

Bytes pattern(size_t size) {
    Bytes bytes(size);
    for (size_t index = 0; index < size; ++index) {
        bytes[index] = static_cast<uint8_t>(index * 7 + index / 256 + 1);
    }
    return bytes;
}

std::string text_of(std::span<const uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

}  // namespace fuzz
