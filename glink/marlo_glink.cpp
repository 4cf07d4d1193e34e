// SPDX-License-Identifier: Apache-2.0
#include "glink/marlo_glink.h"

#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include "comhandler/client_wakelock.h"
#include "daemon/marlo_deamon_log.h"
#include "platform/os.h"

namespace {

// A co-processor that is just coming up needs a moment before its channels can be opened.
constexpr int kOpenAttempts = 3;
constexpr unsigned int kOpenRetrySeconds = 1;

constexpr char kCloseByte = 'd';   // ends the reader thread
constexpr char kReopenByte = 'r';  // makes it poll the descriptor of a reopened channel

}  // namespace

marlo_glink::marlo_glink(glink_conn_config config)
    : _chnl_name(config.channel_name), _read_size(config.read_size) {
    MARLO_LOG(debug, "GLINK_int conn = 0x%llx constructor", id());
    _wakelock = client_wakelock::get_instance();
}

marlo_glink::~marlo_glink() {
    MARLO_LOG(info, "GLINK_int conn = 0x%llx destructor", id());
    _closing = true;
    g_glink_err_cnt = 0;
    glink_disconnect(true);
}

unsigned long long marlo_glink::id() const {
    return reinterpret_cast<uintptr_t>(this);
}

int marlo_glink::register_cb(glink_data_callback data_cb, glink_error_callback err_cb) {
    MARLO_LOG(verbose, "GLINK_int %s start ", "register_cb");
    auto* record = new (std::nothrow) glink_register_cb(std::move(data_cb), std::move(err_cb));
    if (record == nullptr) {
        MARLO_LOG(verbose, "GLINK_int Could not create glink_register_cb");
        return -1;
    }
    _registered.emplace_back(record);
    _callbacks = record;
    MARLO_LOG(verbose, "GLINK_int %s completed ", "register_cb");
    return 0;
}

int marlo_glink::connect_interface(bool start_reader) {
    return glink_connect(_chnl_name, start_reader);
}

void marlo_glink::disconnect_interface() {
    glink_disconnect(true);
}

int marlo_glink::glink_open(const std::string& path) {
    int open_errno = 0;
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        MARLO_LOG(debug, "GLINK_int about to open glink channel on dev node = %s", path.c_str());
        const int fd = os::open(path.c_str(), O_RDWR | O_CLOEXEC);
        // Descriptor 0 is nobody's channel: it means that standard input was closed.
        if (fd > 0) {
            MARLO_LOG(debug, "GLINK_int glink open successful, fd = %d", fd);
            _reconnecting = false;
            return fd;
        }
        open_errno = errno;
        MARLO_LOG(error, "GLINK_int open on dev node = %s failed with errno = %d", path.c_str(),
                  open_errno);
        os::sleep(kOpenRetrySeconds);
    }
    return -open_errno;
}

int marlo_glink::glink_connect(const std::string& name, bool start_reader) {
    const std::string path = "/dev/" + name;
    MARLO_LOG(debug, "GLINK_int glink_connect waiting for _s_glink_read_mutex");
    std::unique_lock lock(_s_glink_read_mutex);
    if (_s_chnl_fd > 0) {
        MARLO_LOG(info, "GLINK_int channel is already opened");
        return -1;
    }
    _s_chnl_fd = glink_open(path);
    if (_s_chnl_fd >= 0) {
        // Written only when it changes: the reader thread compares the name without the lock.
        // cppcheck-suppress duplicateConditionalAssign ; that is what the condition is for
        if (_chnl_name != name) {
            _chnl_name = name;
        }
        if (_thread_started) {
            wake_reader();
            return 0;
        }
        if (_s_chnl_fd == 0 || !start_reader || start_reader_thread(lock)) {
            return 0;
        }
    }
    MARLO_LOG(error, "GLINK_int glink_open failed");
    if (lock.owns_lock()) {
        lock.unlock();
    }
    if (!_reconnecting) {
        // The callback may delete this transport.
        trigger_error_cb(__func__, GLINK_OPEN_FAILED);
    }
    return -1;
}

// Without a pipe the reader runs all the same. It cannot be woken then and looks for the request
// to stop by itself. False, and the channel closed, where no thread can be had.
bool marlo_glink::start_reader_thread(std::unique_lock<std::mutex>& lock) {
    if (os::pipe(_wakeup_pipe) != 0) {
        _wakeup_pipe[0] = -1;
        _wakeup_pipe[1] = -1;
        lock.unlock();
    }
    _stop_reader = false;
    _thread_started = true;
    try {
        _reader_thread = os::start_thread([this] { glink_thread_routine(this); });
    } catch (const std::system_error& failure) {
        MARLO_LOG_FOR("glink_connect", error, "GLINK_int reader thread could not be started: %s",
                      failure.what());
        _thread_started = false;
        close_pipe_end(_wakeup_pipe[0]);
        close_pipe_end(_wakeup_pipe[1]);
        os::close(_s_chnl_fd);
        _s_chnl_fd = -failure.code().value();
    }
    return _thread_started;
}

// A reader that is waiting still polls the descriptor that the channel had before.
void marlo_glink::wake_reader() {
    // In this order: the pipe is not the reader's to look at while it is being closed.
    if (std::this_thread::get_id() != _reader_id && _wakeup_pipe[1] != -1) {
        os::write(_wakeup_pipe[1], &kReopenByte, 1);
    }
}

void marlo_glink::close_pipe_end(int& end) {
    if (end != -1) {
        os::close(end);
        end = -1;
    }
}

void marlo_glink::stop_reader_thread() {
    _stop_reader = true;
    if (_wakeup_pipe[1] != -1 && os::write(_wakeup_pipe[1], &kCloseByte, 1) != 1) {
        MARLO_LOG_FOR("glink_disconnect", error,
                      "GLINK write err on wakup pipe rrrno = %d no way to join readthread", errno);
        // The reader takes the end of the pipe for the byte.
        close_pipe_end(_wakeup_pipe[1]);
    }
    if (_reader_thread.joinable()) {
        os::join_thread(_reader_thread);
    }
    _thread_started = false;
    close_pipe_end(_wakeup_pipe[0]);
    close_pipe_end(_wakeup_pipe[1]);
}

void marlo_glink::glink_disconnect(bool join_reader) {
    MARLO_LOG(info, "glink_disconnect");
    if (join_reader) {
        stop_reader_thread();
    }
    // Under the lock, so that no write in progress goes to a descriptor that has a new owner.
    const std::lock_guard lock(_s_glink_read_mutex);
    if (os::close(_s_chnl_fd) != 0) {
        MARLO_LOG(error, "GLINK_int close on _s_chnl_fd = %d failed with errno = %d",
                  _s_chnl_fd.load(), errno);
    }
    _s_chnl_fd = -1;
}

std::unique_ptr<glink_interface> make_marlo_glink(glink_conn_config config) {
    return std::make_unique<marlo_glink>(config);
}
