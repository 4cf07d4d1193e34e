// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/log.h>

#include <cstdint>
#include <cstdio>

#ifndef MARLO_STDERR_LOGGING
#define MARLO_STDERR_LOGGING 0
#endif

// The log statement of the library-like classes (transport, updater, RMA service, wakelock) and its
// process-wide settings. main's thread writes the settings while it is the only thread; every
// thread reads them without a lock.
//
// The daemon's core does not use it: there __android_log_print is called directly, so that its
// few lines appear whatever the level is.
namespace marlo_deamon_log {

// The highest class of statement that is emitted, and the class of a statement. The values are
// those of the updater's log-level member.
enum class log_level : int32_t {
    none = 0,  // nothing is emitted
    error = 1,
    info = 2,
    debug = 3,
    verbose = 4,
};

// In the header, so that a statement below the level costs a comparison and no call.
struct Settings {
    log_level level = log_level::info;
    const char* tag = "MarloDaemon";
};
inline Settings settings;

inline log_level get_level() {
    return settings.level;
}
inline void set_level(log_level level) {
    settings.level = level;
}

// The tag of every statement. The pointer is stored as it is: the caller keeps the text alive.
inline const char* get_tag() {
    return settings.tag;
}
inline void set_tag(const char* tag) {
    settings.tag = tag;
}

// Whether each emitted statement is copied to standard error. Off, unless the build turns it on
// (CMake: MARLO_STDERR_LOGGING).
constexpr bool get_stderr_logging() {
    return MARLO_STDERR_LOGGING != 0;
}

constexpr android_LogPriority priority_of(log_level statement_class) {
    switch (statement_class) {
        case log_level::none:
            return ANDROID_LOG_SILENT;
        case log_level::error:
            return ANDROID_LOG_ERROR;
        case log_level::info:
            return ANDROID_LOG_INFO;
        case log_level::debug:
            return ANDROID_LOG_DEBUG;
        case log_level::verbose:
            return ANDROID_LOG_VERBOSE;
    }
    return ANDROID_LOG_SILENT;
}

// Passes a statement that the level admits to the Android log: a printf format and its arguments.
[[gnu::format(printf, 2, 3)]] void emit(log_level statement_class, const char* format, ...);

}  // namespace marlo_deamon_log

// MARLO_LOG(error, "open failed with %d", errno): a printf format behind the function's name and
// the line. Below the level nothing is evaluated; the copy evaluates the arguments once more, and
// its newline is added even where the format ends in one.
#define MARLO_LOG(statement_class, format, ...) \
    MARLO_LOG_FOR(__func__, statement_class, format __VA_OPT__(, ) __VA_ARGS__)

// The same in the name of `function`: for a step of an operation that has a function of its own
// but logs as the operation that it is part of.
#define MARLO_LOG_FOR(function, statement_class, format, ...)                                      \
    do {                                                                                           \
        if (marlo_deamon_log::get_level() >= marlo_deamon_log::log_level::statement_class) {       \
            marlo_deamon_log::emit(marlo_deamon_log::log_level::statement_class, "%s:%d, " format, \
                                   function, __LINE__ __VA_OPT__(, ) __VA_ARGS__);                 \
            if (marlo_deamon_log::get_stderr_logging()) {                                          \
                fprintf(stderr, "%s:%d, " format "\n", function,                                   \
                        __LINE__ __VA_OPT__(, ) __VA_ARGS__);                                      \
            }                                                                                      \
        }                                                                                          \
    } while (false)
