// SPDX-License-Identifier: Apache-2.0
#include "daemon/SSRHandler.h"

#include <android/log.h>
#include <cutils/properties.h>
#include <cutils/uevent.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <string_view>
#include <system_error>

#include "daemon/MarloDaemon.h"
#include "daemon/property_names.h"
#include "platform/os.h"

namespace {

// The listener has a tag of its own; the rest of the core logs with the process's.
constexpr const char* kTag = "MarloDaemon";

constexpr int kReceiveBufferBytes = 64 * 1024;  // the kernel's side of the socket
constexpr size_t kMessageBytes = 1024;          // of one uevent
constexpr size_t kEndBytes = 2;                 // NULs that end its last text and its last message

constexpr std::string_view kDeviceName = "marlo_com_dev";
constexpr std::string_view kEventKey = "MARLO_EVENT=";

// A number too large for an event is none that is acted upon.
int32_t event_value(const char* text) {
    constexpr long kLowest = std::numeric_limits<int32_t>::min();
    constexpr long kHighest = std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(std::clamp(strtol(text, nullptr, 10), kLowest, kHighest));
}

}  // namespace

SSRHandler::SSRHandler(MarloDaemon* daemon) : daemon_(daemon) {
    try {
        os::start_thread([this] { marloSSREventListener(); }).detach();
    } catch (const std::system_error& error) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "restart listener cannot be started: %s",
                            error.what());
    }
}

void SSRHandler::marloSSREventListener() {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "%s: called\n", __func__);
    const int socket = uevent_open_socket(kReceiveBufferBytes, true);
    if (socket < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "open socket failed");
    }
    std::array<char, kMessageBytes + kEndBytes> buffer{};
    while (true) {
        const ssize_t length = uevent_kernel_multicast_recv(socket, buffer.data(), kMessageBytes);
        if (length < 1) {
            break;
        }
        handle_message(buffer, static_cast<size_t>(length));
    }
    if (socket >= 0) {
        os::close(socket);
    }
}

void SSRHandler::handle_message(std::span<char> buffer, size_t length) {
    if (length > kMessageBytes) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Message length is not correct \n");
        return;
    }
    std::fill_n(buffer.begin() + static_cast<ptrdiff_t>(length), kEndBytes, '\0');
    if (std::string_view(buffer.data(), length).find(kDeviceName) == std::string_view::npos) {
        return;
    }
    for (const char* text = buffer.data(); *text != '\0';) {
        const std::string_view line(text);
        if (line.starts_with(kEventKey)) {
            handle_event(event_value(text + kEventKey.size()));
        }
        text += line.size() + 1;
    }
}

// The property comes before the daemon's reaction, which may query the version: that waits for it.
void SSRHandler::handle_event(int32_t event) {
    last_event_ = event;
    if (event == MARLO_POWER_DOWN) {
        property_set(kBootCompleteProperty, "0");
        if (daemon_ != nullptr) {
            daemon_->on_aon_down();
        }
        __android_log_print(ANDROID_LOG_DEBUG, kTag, "marlo is power down");
    } else if (event == MARLO_POWER_UP) {
        __android_log_print(ANDROID_LOG_DEBUG, kTag, "marlo is powered up");
        property_set(kBootCompleteProperty, "1");
        if (daemon_ != nullptr) {
            daemon_->on_aon_up();
        }
    }
}
