// SPDX-License-Identifier: Apache-2.0
// The reader thread: what it waits for, what it does with packets, errors and hang-ups.
#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>
#include <utility>

#include "daemon/marlo_deamon_log.h"
#include "glink/marlo_glink.h"
#include "glink/wakelock_reference.h"
#include "platform/os.h"
#include "platform/trace.h"

namespace {

constexpr short kChannelEvents = POLLIN | POLLHUP;

// Between two passes in a row that took nothing in: a channel that keeps failing costs no more
// than a hundred passes a second, and twenty after a hundred of them.
constexpr useconds_t kFruitlessPauseUs = 10'000;
constexpr useconds_t kHopelessPauseUs = 50'000;
constexpr int kHopelessPasses = 100;

// The buffer of a longer packet is not kept for the next one.
constexpr size_t kKeptPacketBytes = size_t{64} * 1024;

// How often a reader without a wake-up pipe looks for the request to stop.
constexpr int kPipelessPollMs = 1'000;

// The operations in whose name their steps log.
constexpr const char* kReaderName = "glink_thread_routine";
constexpr const char* kErrorHandlerName = "glink_error_handler";

// The transport whose error callback is running on this thread, if any.
thread_local const marlo_glink* t_reporting = nullptr;

}  // namespace

void marlo_glink::glink_thread_routine(marlo_glink* self) {
    self->_reader_id = std::this_thread::get_id();
    int fruitless_passes = 0;  // in a row
    while (true) {
        const reader_pass pass = self->poll_and_read();
        if (pass == reader_pass::stop) {
            MARLO_LOG(debug, "GLINK thread exit");
            return;
        }
        if (pass != reader_pass::failed && self->g_glink_err_cnt != 0) {
            self->g_glink_err_cnt = 0;
        }
        if (pass == reader_pass::delivered) {
            fruitless_passes = 0;
            continue;
        }
        if (fruitless_passes > 0) {
            const bool is_hopeless = fruitless_passes == kHopelessPasses;
            os::usleep(is_hopeless ? kHopelessPauseUs : kFruitlessPauseUs);
        }
        fruitless_passes = std::min(fruitless_passes + 1, kHopelessPasses);
    }
}

marlo_glink::reader_pass marlo_glink::poll_and_read() {
    const int fd = _s_chnl_fd;
    pollfd entries[2] = {{_wakeup_pipe[0], POLLIN, 0}, {fd, kChannelEvents, 0}};
    MARLO_LOG_FOR(kReaderName, debug, "GLINK waiting on poll wakeup_pipe %d glink_fd %d",
                  _wakeup_pipe[0], fd);
    const bool has_pipe = _wakeup_pipe[0] != -1;
    const int ready = os::poll(entries, 2, has_pipe ? -1 : kPipelessPollMs);
    if (!has_pipe && _stop_reader) {
        return reader_pass::stop;
    }
    if (ready == 0) {
        if (has_pipe) {
            MARLO_LOG_FOR(kReaderName, error, "GLINK_int poll time-out");
        }
        return reader_pass::fruitless;
    }
    if (ready < 0) {
        MARLO_LOG_FOR(kReaderName, error,
                      "GLINK_int poll failed with errno = %d, g_glink_err_cnt = %d", errno,
                      g_glink_err_cnt.load());
        glink_error_handler(-1);
        return reader_pass::failed;
    }
    if (entries[0].revents != 0) {
        return take_wake_up();
    }
    if ((entries[1].revents & POLLIN) != 0) {
        const reader_pass pass = take_packet(fd);
        if (_packet.capacity() > kKeptPacketBytes) {
            std::vector<uint8_t>().swap(_packet);
        }
        return pass;
    }
    if ((entries[1].revents & POLLHUP) != 0) {
        MARLO_LOG_FOR(kReaderName, error,
                      "GLINK_int POLLHUP event is received, AON CLIENT SSR occured");
        glink_error_handler(POLLHUP);
    } else {
        MARLO_LOG_FOR(kReaderName, error, "GLINK_int received unregistered pollevent = %d",
                      entries[1].revents);
    }
    return reader_pass::fruitless;
}

marlo_glink::reader_pass marlo_glink::take_wake_up() {
    char byte = 0;
    const ssize_t count = os::read(_wakeup_pipe[0], &byte, 1);
    // Without a byte the write end is closed, which asks for the same.
    if (byte == 'd' || count <= 0) {
        MARLO_LOG_FOR(kReaderName, debug, "GLINK explicitly requested thread close");
        return reader_pass::stop;
    }
    return reader_pass::delivered;
}

marlo_glink::reader_pass marlo_glink::take_packet(int fd) {
    MARLO_LOG_FOR(kReaderName, debug, "GLINK_int received POLLIN event");
    _packet.assign(_read_size, 0);
    const int result = glink_read(fd, _packet, _read_size);
    if (result > 0) {
        MARLO_LOG_FOR(kReaderName, debug, "GLINK_int waiting for _s_glink_read_mutex");
        MARLO_LOG_FOR(kReaderName, debug, "calling glink response handler: ");
        glink_response_handler(_packet);
        return reader_pass::delivered;
    }
    MARLO_LOG_FOR(kReaderName, error,
                  "GLINK_int read has failed with errno = %d, g_glink_err_cnt = %d", errno,
                  g_glink_err_cnt.load());
    if (result < 0) {
        glink_error_handler(result);
        return reader_pass::failed;
    }
    return reader_pass::fruitless;
}

// A length field that promises more than the packet holds must not keep the reader from ending.
// False when its wake-up pipe says something, which is left there.
bool marlo_glink::wait_for_rest(int fd) {
    const int timeout_ms = _wakeup_pipe[0] == -1 ? kPipelessPollMs : -1;
    pollfd entries[2] = {{_wakeup_pipe[0], POLLIN, 0}, {fd, kChannelEvents, 0}};
    while (os::poll(entries, 2, timeout_ms) == 0 && !_stop_reader) {
    }
    return entries[0].revents == 0 && !_stop_reader;
}

void marlo_glink::glink_error_handler(int error) {
    MARLO_LOG(info, "GLINK_int glink_error_handler received error = %d", error);
    if (error == POLLHUP) {
        reconnect();
        return;
    }
    MARLO_LOG(verbose, "GLINK_int waitig for _s_glink_read_mutex");
    {
        const std::lock_guard lock(_s_glink_read_mutex);
        if (++g_glink_err_cnt > _err_threshold) {
            MARLO_LOG(debug, "GLINK_int triggred ssr g_glink_err_cnt = %d", g_glink_err_cnt.load());
            g_glink_err_cnt = 0;
        }
    }
    trigger_error_cb(kErrorHandlerName, GLINK_IO_ERROR);
}

// On the reader thread, which therefore stays and is not joined.
void marlo_glink::reconnect() {
    MARLO_LOG_FOR(kErrorHandlerName, debug, "GLINK_int Inside POLLHUP error handler");
    _reconnecting = true;
    try {
        glink_disconnect(false);
        MARLO_LOG_FOR(kErrorHandlerName, debug, "GLINK_int glink error, trying to reconnect");
        glink_connect(_chnl_name, true);
    } catch (const std::exception& failure) {
        MARLO_LOG_FOR(kErrorHandlerName, error, "GLINK_int could not reconnect: %s",
                      failure.what());
        return;
    }
    trigger_error_cb(kErrorHandlerName, GLINK_SSR);
}

// The callback may delete this transport, so nothing of it is touched once the callback has
// returned. A failure that the callback itself provokes (it sends, and the send fails) is counted
// and logged by then; reporting it as well would call the callback from within itself for ever.
void marlo_glink::trigger_error_cb(const char* function, glink_interface_error error) {
    const glink_register_cb* callbacks = _callbacks;
    if (callbacks == nullptr || !callbacks->error_callback || t_reporting == this) {
        return;
    }
    const glink_error_callback callback = callbacks->error_callback;
    const marlo_glink* const outer = std::exchange(t_reporting, this);
    MARLO_LOG_FOR(function, verbose, "GLINK_int triggered error callback");
    callback(error);
    t_reporting = outer;
}

void marlo_glink::glink_response_handler(const std::vector<uint8_t>& packet) {
    MARLO_LOG(debug, "GLINK_int conn = 0x%llx received indication", id());
    if (_closing) {
        MARLO_LOG(debug,
                  "GLINK_int conn = 0x%llx indication is coming while connection is being closed",
                  id());
        return;
    }
    MARLO_LOG(debug, "buffer_len %zu", packet.size());
    _ind_buf = new (std::nothrow) uint8_t[packet.size()];
    _ind_buf_len = static_cast<uint32_t>(packet.size());
    if (_ind_buf == nullptr) {
        MARLO_LOG(debug, "memory allocation failed for _ind_buf");
        return;
    }
    std::copy(packet.begin(), packet.end(), _ind_buf);
    const os::TraceSection section(__func__);
    const WakelockReference awake(_wakelock, __func__);
    if (const glink_register_cb* callbacks = _callbacks; callbacks != nullptr) {
        const glink_data_callback data_callback = callbacks->data_callback;
        const int result = trigger_event_cb(data_callback);
        MARLO_LOG(verbose, "GLINK_int triggered event callback, got value %d", result);
    }
    delete[] _ind_buf;
    _ind_buf = nullptr;
    _ind_buf_len = 0;
}

int marlo_glink::trigger_event_cb(const glink_data_callback& data_cb) {
    if (_ind_buf_len == 0) {
        MARLO_LOG(error, "GLINK_int buffer len is 0");
        return -1;
    }
    data_cb(_ind_buf, _ind_buf_len);
    return 0;
}
