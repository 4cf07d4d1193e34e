// SPDX-License-Identifier: Apache-2.0
// Bytes in and out of the channel: framing by the length field, retries, the synchronous read.
#include <utils/SystemClock.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "daemon/marlo_deamon_log.h"
#include "glink/marlo_glink.h"
#include "glink/wakelock_reference.h"
#include "platform/os.h"
#include "platform/trace.h"
#include "wire/little_endian.h"

namespace {

constexpr int MAX_GLINK_READ_RETRIES = 3;
// 100 tries, 5 ms apart: half a second for a congested channel.
constexpr int MAX_GLINK_WRITE_RETRIES = 100;
constexpr useconds_t kWriteRetryUs = 5'000;
constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int64_t kSlowWriteNs = 2 * kNsPerSecond;

// No message comes near it: a longer length field is a broken one.
constexpr uint32_t kMaxPacketBytes = 16 * 1024 * 1024;

// Between two reads of a response that found nothing.
constexpr useconds_t kEmptyResponsePauseUs = 5'000;

// The operations in whose name their steps log.
constexpr const char* kReadName = "glink_read";
constexpr const char* kWriteName = "glink_write";
constexpr const char* kResponseName = "read_response";

// Where the headers of a channel's messages hold the whole message's length, a 32-bit word.
struct Framing {
    std::string_view channel_name;
    uint32_t length_offset;
    int threshold;  // bytes that the first read must have brought for the field to count
};
constexpr Framing kFramings[] = {{"glink_pkt_marlo_dfu", 8, 17}, {"glink_pkt_marlo_rma", 4, 13}};

const Framing* framing_of(std::string_view channel_name, int received) {
    for (const Framing& framing : kFramings) {
        if (framing.channel_name == channel_name && received >= framing.threshold) {
            return &framing;
        }
    }
    return nullptr;
}

}  // namespace

int marlo_glink::glink_read(int fd, std::vector<uint8_t>& buffer, unsigned int len) {
    MARLO_LOG(debug, "GLINK_int glink_read fd = %d buf_len = %zu", fd, buffer.size());
    if (len == 0) {
        return 0;
    }
    try {
        return read_packet(fd, buffer, len);
    } catch (const std::bad_alloc&) {
        return read_failed(ENOMEM);
    }
}

// Each read asks for the whole length, not for what is missing of it. The buffer has room for
// that and is cut to the framed length at the end.
int marlo_glink::read_packet(int fd, std::vector<uint8_t>& buffer, unsigned int len) {
    unsigned int want = len;
    size_t total = 0;
    int retries = 0;
    int empty_reads = 0;
    const Framing* framing = nullptr;
    for (bool is_first = true; is_first || total < want;) {
        if (!is_first && !wait_for_rest(fd)) {
            return 0;
        }
        buffer.resize(std::max(buffer.size(), total + want));
        const ssize_t count = os::read(fd, buffer.data() + total, want);
        if (count < 0 && errno == EAGAIN) {
            MARLO_LOG_FOR(kReadName, error, "GLINK_int read EAGAIN has occured on fd = %d", fd);
            if (++retries == MAX_GLINK_READ_RETRIES) {
                return read_retries_used_up();
            }
            continue;
        }
        if (count < 0) {
            return read_failed(errno);
        }
        MARLO_LOG_FOR(kReadName, debug, "GLINK_int partial read bytes = %d",
                      static_cast<int>(count));
        total += static_cast<size_t>(count);
        if (is_first) {
            is_first = false;
            framing = framing_of(_chnl_name, static_cast<int>(total));
            want = get_size_from_header(static_cast<int>(total), buffer);
            if (want > kMaxPacketBytes) {
                return read_failed(EMSGSIZE);
            }
        } else if (count == 0 && ++empty_reads == MAX_GLINK_READ_RETRIES) {
            // The rest of the packet will not come.
            return read_failed(EIO);
        }
    }
    if (framing != nullptr) {
        buffer.resize(want);
    }
    MARLO_LOG_FOR(kReadName, debug, "GLINK_int complete read bytes = %d", static_cast<int>(total));
    return static_cast<int>(total);
}

int marlo_glink::read_retries_used_up() {
    ++g_glink_err_cnt;
    MARLO_LOG_FOR(kReadName, error,
                  "GLINK_int read MAX_GLINK_READ_RETRIES = %d has finished & g_glink_err_cnt = %d",
                  MAX_GLINK_READ_RETRIES, g_glink_err_cnt.load());
    errno = EAGAIN;
    return -EAGAIN;
}

int marlo_glink::read_failed(int error) {
    ++g_glink_err_cnt;
    MARLO_LOG_FOR(kReadName, error, "GLINK_int read failed with errno = %d", error);
    errno = error;
    return -error;
}

unsigned int marlo_glink::get_size_from_header(int bytes_received, std::vector<uint8_t>& buffer) {
    uint32_t length = 0;
    if (const Framing* framing = framing_of(_chnl_name, bytes_received); framing != nullptr) {
        length = wire::word_at(buffer, framing->length_offset);
        if (length <= kMaxPacketBytes) {
            buffer.resize(length);
        }
    }
    MARLO_LOG(debug, "GLINK_int pkt size to be read = %d", static_cast<int>(length));
    return length;
}

int marlo_glink::glink_write(int fd, const unsigned char* buf, unsigned int len) {
    MARLO_LOG(debug,
              "GLINK_int conn = 0x%llx write fd = %d buf_len = %zu, waiting for "
              "_s_glink_read_mutex",
              id(), fd, static_cast<size_t>(len));
    std::unique_lock lock(_s_glink_read_mutex);
    if (_s_chnl_fd == -1) {
        MARLO_LOG(error, "GLINK_int conn = 0x%llx write is not permitted as_s_chnl_fd is -1", id());
        return 0;
    }
    const os::TraceSection section(kWriteName);
    const WakelockReference awake(_wakelock, kWriteName);
    const write_outcome outcome = write_with_retries(buf, len);
    lock.unlock();
    if (!outcome.failed) {
        MARLO_LOG(info, "GLINK_int conn = 0x%llx complete bytes written= %d retries %d", id(),
                  outcome.written, outcome.retries);
    }
    return outcome.result;
}

// With the mutex held. The descriptor is the one that is open now: the channel may have been
// reopened since the caller looked at it.
marlo_glink::write_outcome marlo_glink::write_with_retries(const unsigned char* buf,
                                                           unsigned int len) {
    write_outcome outcome;
    for (unsigned int remaining = len; remaining > 0;) {
        const ssize_t count = os::write(_s_chnl_fd, buf, remaining);
        outcome.result = static_cast<int>(count);
        if (count == 0) {
            break;
        }
        if (count > 0) {
            MARLO_LOG_FOR(kWriteName, debug, "GLINK_int conn = 0x%llx partial bytes written= %d",
                          id(), outcome.result);
            buf += count;
            outcome.written += outcome.result;
            remaining -= static_cast<unsigned int>(count);
            continue;
        }
        const int error = errno;
        if (error != EBUSY && error != EAGAIN) {
            ++g_glink_err_cnt;
            MARLO_LOG_FOR(kWriteName, error,
                          "GLINK_int conn = 0x%llx write has failed with errno = %d & "
                          "g_glink_err_cnt = %d",
                          id(), error, g_glink_err_cnt.load());
            return {-error, outcome.written, outcome.retries, true};
        }
        MARLO_LOG_FOR(kWriteName, error, "GLINK conn = 0x%llx write failed with errno = %d", id(),
                      error);
        if (++outcome.retries == MAX_GLINK_WRITE_RETRIES) {
            ++g_glink_err_cnt;
            MARLO_LOG_FOR(kWriteName, error,
                          "GLINK_int conn = 0x%llx write MAX_GLINK_WRITE_RETRIES = %d has "
                          "finished on fd = %d & g_glink_err_cnt = %d",
                          id(), MAX_GLINK_WRITE_RETRIES, _s_chnl_fd.load(), g_glink_err_cnt.load());
            return {-error, outcome.written, outcome.retries, true};
        }
        os::usleep(kWriteRetryUs);
    }
    return outcome;
}

int marlo_glink::send_request(unsigned char* buf, unsigned int len) {
    if (_reconnecting) {
        MARLO_LOG(error, "GLINK_int conn = 0x%llx is reconnecting, cannot send request", id());
        return -1;
    }
    MARLO_LOG(debug, "GLINK_int conn = 0x%llx is sending request", id());
    const int64_t start_ns = android::elapsedRealtimeNano();
    const int result = glink_write(_s_chnl_fd, buf, len);
    const int64_t elapsed_ns = android::elapsedRealtimeNano() - start_ns;
    if (result < 0) {
        MARLO_LOG(error, "GLINK_int conn = 0x%llx glink_write has failed", id());
        glink_error_handler(result);
    }
    if (elapsed_ns > kSlowWriteNs) {
        const int64_t whole_seconds = elapsed_ns / kNsPerSecond;
        MARLO_LOG(info, "GLINK_int conn = 0x%llx time taken to complete glink_write is %lf secs",
                  id(), static_cast<double>(whole_seconds));
    }
    return result;
}

int marlo_glink::glink_poll(int fd) {
    pollfd entry = {fd, POLLIN | POLLHUP, 0};
    if (os::poll(&entry, 1, static_cast<int>(_poll_timeout_s * 1'000)) < 1) {
        return -1;
    }
    if ((entry.revents & POLLIN) != 0) {
        return 0;
    }
    if ((entry.revents & POLLHUP) != 0) {
        MARLO_LOG(error, "%s: SSR detected", "glink_poll");
    }
    return -1;
}

int marlo_glink::read_response(unsigned char* buf, unsigned int len) {
    if (_s_chnl_fd < 0) {
        return -1;
    }
    const WakelockReference awake(_wakelock, kResponseName);
    const int64_t give_up_ns =
        android::elapsedRealtimeNano() + int64_t{_poll_timeout_s} * kNsPerSecond;
    return glink_poll(_s_chnl_fd) == 0 ? fill_response(buf, len, give_up_ns) : -1;
}

// Whether there is something to read, a hang-up included, within the time that is left.
bool marlo_glink::readable_before(int64_t give_up_ns) {
    constexpr int64_t kNsPerMs = 1'000'000;
    const int64_t left_ns = std::max<int64_t>(give_up_ns - android::elapsedRealtimeNano(), 0);
    pollfd entry = {_s_chnl_fd, POLLIN | POLLHUP, 0};
    return os::poll(&entry, 1, static_cast<int>(left_ns / kNsPerMs)) > 0;
}

// The -1 of an EAGAIN is counted like a byte count, in unsigned arithmetic: on the first read it
// ends the response as complete.
int marlo_glink::fill_response(unsigned char* buf, unsigned int len, int64_t give_up_ns) {
    bool is_first = true;
    for (uint32_t received = 0; received < len;) {
        if (!std::exchange(is_first, false) && !readable_before(give_up_ns)) {
            return -1;
        }
        const ssize_t count = os::read(_s_chnl_fd, buf + received, len - received);
        if (count < 0 && errno != EAGAIN) {
            MARLO_LOG_FOR(kResponseName, error, "%s: Read error: %s, rc %d", kResponseName,
                          strerror(errno), static_cast<int>(count));
            return -1;
        }
        if (count == 0) {
            MARLO_LOG_FOR(kResponseName, error,
                          "%s: Zero length packet received or hardware connection went off",
                          kResponseName);
            if (android::elapsedRealtimeNano() >= give_up_ns) {
                return -1;
            }
            os::usleep(kEmptyResponsePauseUs);
            continue;
        }
        received = static_cast<uint32_t>(int64_t{received} + count);
    }
    return 0;
}
