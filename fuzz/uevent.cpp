// SPDX-License-Identifier: Apache-2.0
// Messages of the kernel to the restart listener, of any length and contents. Which events are in
// them is worked out a second time.
#include <algorithm>
#include <cerrno>
#include <string>

#include "daemon/SSRHandler.h"
#include "fuzz/harness.h"

using fuzz::must;
using fuzz::platform;

namespace {

constexpr size_t kLongestMessage = 1024;
constexpr const char* kBootComplete = "vendor.marlo.boot_complete";

// A decimal number with what may be before it; one that is too large is the largest there is.
int32_t number_in(const std::string& text) {
    const size_t start = text.find_first_not_of(" \t\n\v\f\r");
    if (start == std::string::npos) {
        return 0;
    }
    const bool is_negative = text[start] == '-';
    int64_t value = 0;
    for (size_t place = start + (is_negative || text[start] == '+' ? 1 : 0);
         place < text.size() && text[place] >= '0' && text[place] <= '9'; ++place) {
        value = std::min<int64_t>(value * 10 + (text[place] - '0'), int64_t{1} << 40);
    }
    return static_cast<int32_t>(
        std::clamp<int64_t>(is_negative ? -value : value, INT32_MIN, INT32_MAX));
}

struct Expected {
    int32_t last_event = 0;
    std::string boot_complete;  // as the events so far leave it
    size_t events = 0;

    void take(const std::string& message) {
        if (message.find("marlo_com_dev") == std::string::npos) {
            return;
        }
        const std::string key = "MARLO_EVENT=";
        for (size_t begin = 0; begin < message.size();) {
            const std::string text = message.substr(begin, message.find('\0', begin) - begin);
            if (text.empty()) {
                return;  // what follows is of an earlier message
            }
            if (text.starts_with(key)) {
                take_event(number_in(text.substr(key.size())));
            }
            begin += text.size() + 1;
        }
    }

    void take_event(int32_t event) {
        ++events;
        last_event = event;
        boot_complete = event == MARLO_POWER_DOWN ? "0"
                        : event == MARLO_POWER_UP ? "1"
                                                  : boot_complete;
    }
};

// One message, and whether the listener goes on after it.
bool add_message(fuzz::Input& input, Expected& expected) {
    static const std::string names[] = {"MARLO_EVENT=1", "MARLO_EVENT=4",
                                        "MARLO_EVENT=", "marlo_com_dev",
                                        "change@/devices/virtual/marlo_com_dev"};
    std::string message;
    for (uint32_t texts = input.below(8); texts > 0; --texts) {
        const uint32_t name = input.below(8);
        message += name < std::size(names) ? names[name] : "";
        message += input.text(input.below(64));
        message += input.flip() ? std::string(1, '\0') : "";
    }
    if (input.below(16) == 1) {
        message.append(size_t{4} * input.below(256), 'x');
    }
    const uint32_t odd = input.below(32);
    if (odd == 1) {
        platform().uevent(message, input.pick<ssize_t>({1025, 4096, 65536}));
        return true;  // longer than there was room for: not looked at
    }
    if (odd == 2) {
        platform().uevent(message, input.pick<ssize_t>({0, -1}));
        return false;
    }
    platform().uevent(message);
    if (!message.empty()) {
        expected.take(message.substr(0, kLongestMessage));
    }
    return !message.empty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::begin();
    fuzz::Input input(data, size);
    // Its thread is this one.
    platform().fail_next_thread(EAGAIN);
    SSRHandler listener(nullptr);
    Expected expected;
    size_t messages = 1;
    while (add_message(input, expected)) {
        ++messages;
    }
    listener.marloSSREventListener();
    must(listener.last_event() == expected.last_event, "the last event is %d, not %d",
         listener.last_event(), expected.last_event);
    must(platform().property(kBootComplete) == expected.boot_complete, "the property is %s, not %s",
         platform().property(kBootComplete).c_str(), expected.boot_complete.c_str());
    must(platform().open_descriptors() == 0, "the socket is left open");
    must(fuzz::log_lines() <= 4 + messages + expected.events, "%zu log lines", fuzz::log_lines());
    return 0;
}
