// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "glink/glink_interface.h"

class client_wakelock;

// The two callables of a transport's user.
struct glink_register_cb {
    glink_register_cb(glink_data_callback data_cb, glink_error_callback err_cb)
        : data_callback(std::move(data_cb)), error_callback(std::move(err_cb)) {}

    glink_data_callback data_callback;
    glink_error_callback error_callback;
};

// One packet channel, the character device "/dev/" followed by its name.
//
// Two kinds of threads enter it. The user's thread connects, sends, disconnects and destroys. The
// reader thread, started by the first connect that asks for it, polls the channel and a wake-up
// pipe, reads and frames packets, and runs the callbacks; it also reopens the channel after a
// hang-up. One mutex serialises opening, closing, every write and the counting of errors. It is
// not held while reading or while a callback runs.
class marlo_glink : public glink_interface {
  public:
    explicit marlo_glink(glink_conn_config config);

    int register_cb(glink_data_callback data_cb, glink_error_callback err_cb) override;
    int send_request(unsigned char* buf, unsigned int len) override;
    int read_response(unsigned char* buf, unsigned int len) override;
    int connect_interface(bool start_reader) override;
    void disconnect_interface() override;
    ~marlo_glink() override;

  private:
    enum class reader_pass {
        stop,       // the thread was asked to end
        delivered,  // a packet or a wake-up was taken in
        fruitless,  // ended normally, with nothing taken in
        failed,     // the poll or the read failed
    };

    struct write_outcome {
        int result = 0;   // of the last write call, or a negated errno
        int written = 0;  // bytes, over all calls
        int retries = 0;
        bool failed = false;
    };

    // Connection (marlo_glink.cpp).
    int glink_open(const std::string& path);
    int glink_connect(const std::string& name, bool start_reader);
    void glink_disconnect(bool join_reader);
    bool start_reader_thread(std::unique_lock<std::mutex>& lock);
    void stop_reader_thread();
    void wake_reader();
    void close_pipe_end(int& end);

    // Reader thread (marlo_glink_reader.cpp).
    static void glink_thread_routine(marlo_glink* self);
    reader_pass poll_and_read();
    reader_pass take_wake_up();
    reader_pass take_packet(int fd);
    bool wait_for_rest(int fd);
    void glink_error_handler(int error);
    void reconnect();
    void trigger_error_cb(const char* function, glink_interface_error error);
    void glink_response_handler(const std::vector<uint8_t>& packet);
    int trigger_event_cb(const glink_data_callback& data_cb);

    // Bytes (marlo_glink_io.cpp).
    int glink_read(int fd, std::vector<uint8_t>& buffer, unsigned int len);
    int read_packet(int fd, std::vector<uint8_t>& buffer, unsigned int len);
    int read_retries_used_up();
    int read_failed(int error);
    unsigned int get_size_from_header(int bytes_received, std::vector<uint8_t>& buffer);
    int glink_write(int fd, const unsigned char* buf, unsigned int len);
    write_outcome write_with_retries(const unsigned char* buf, unsigned int len);
    int glink_poll(int fd);
    bool readable_before(int64_t give_up_ns);
    int fill_response(unsigned char* buf, unsigned int len, int64_t give_up_ns);
    unsigned long long id() const;  // how log lines tell transports apart

    std::string _chnl_name;
    uint32_t _read_size;
    std::atomic<int> _s_chnl_fd{-1};  // -1 closed; another negative value after a failed reopen
    const uint32_t _poll_timeout_s = 2;
    int _wakeup_pipe[2] = {-1, -1};  // read end, write end
    std::mutex _s_glink_read_mutex;
    std::atomic<bool> _thread_started{false};
    std::thread _reader_thread;
    std::atomic<std::thread::id> _reader_id;  // how the reader thread knows that it is itself
    const int _err_threshold = 10;
    std::atomic<int> g_glink_err_cnt{0};     // consecutive errors
    std::atomic<bool> _reconnecting{false};  // from a hang-up until the channel is open again
    std::atomic<bool> _closing{false};
    std::atomic<bool> _stop_reader{false};  // also tells a reader that has no wake-up pipe
    std::vector<uint8_t> _packet;           // what the last read brought; the reader thread's alone
    uint8_t* _ind_buf = nullptr;  // the packet that is being delivered; the reader thread's alone
    uint32_t _ind_buf_len = 0;
    client_wakelock* _wakelock = nullptr;
    std::atomic<glink_register_cb*> _callbacks{nullptr};
    // Every record registered so far: the reader thread may still be calling an earlier one.
    std::vector<std::unique_ptr<glink_register_cb>> _registered;
};

std::unique_ptr<glink_interface> make_marlo_glink(glink_conn_config config);
