// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <dirent.h>
#include <poll.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/scripted/disk.h"

// The platform that tests link instead of platform/linux: files in memory, devices whose answers a
// test scripts, properties, a clock that only waits move, and one transcript of all
// that happened, in order. It stands behind platform/os.h, Android's properties, the boot clock
// and the log.
namespace scripted {

Bytes bytes_of(const std::string& text);

// What one read or write gives. With `error` set the call fails with it; otherwise a read gives
// `data` (over several reads where fewer bytes are asked for; 0 bytes where it is empty), and a
// write takes `accepted` bytes (all of them by default).
struct Step {
    Bytes data;
    int error = 0;
    size_t accepted = SIZE_MAX;
    int64_t takes_ns = 0;  // how far the call moves the clock
};

Step failure(int error);

// A control command as the device saw it: returns the result, or a negated errno.
using IoctlHandler = std::function<int(uint32_t request, uint32_t* words)>;

// The uevent socket among the devices.
inline constexpr const char* kUeventSocket = "uevent:";

// Thrown by a wait once stop_after_sleeps() is used up: the way out of an endless loop.
struct Stopped {};

class Platform {
  public:
    // Contents of the file at `path`. A new file can be made, and another renamed, only where
    // there is a directory for it.
    void file(const std::string& path, const std::string& contents);
    // An openable device whose reads, writes and polls are scripted.
    void device(const std::string& path);
    void remove(const std::string& path);
    // A directory, and what listing it shows: name and type (DT_DIR, DT_LNK, DT_REG).
    void directory(const std::string& path, std::vector<std::pair<std::string, uint8_t>> entries);
    // The kind of file that fstat reports (S_IFREG unless set). Opening a FIFO without O_NONBLOCK,
    // which would wait for a writer for ever, ends the test.
    void file_mode(const std::string& path, unsigned int mode);
    // The size that fstat reports, whatever the file holds.
    void file_size(const std::string& path, int64_t size);

    // The next opens of `path` fail with these errors, one each.
    void fail_opens(const std::string& path, const std::vector<int>& errors);
    // The descriptor that the next successful open returns.
    void next_descriptor(int fd);
    void script_read(const std::string& path, Step step);
    void script_write(const std::string& path, Step step);
    // The next call that the transcript would show as `call` fails with `error`: "fsync PATH",
    // "fdatasync PATH", "rename FROM TO", "unlink PATH".
    void fail_call(const std::string& call, int error);
    // The next poll of a set with this device reports exactly these events for it, once.
    // To be scripted before the data that it announces: a reader may take the data meanwhile.
    void script_poll_events(const std::string& path, short events);
    // The next poll fails with `error`, or times out where it is 0.
    void script_poll_failure(int error);
    void fail_next_pipe(int error);
    void fail_next_thread(int error);
    void no_low_memory(bool none);
    // POLLHUP alone from now on, until the device is opened again.
    void hang_up(const std::string& path);
    void on_ioctl(IoctlHandler handler);
    // Called, without any lock, as soon as a packet is written to the device.
    void on_write(const std::string& path, std::function<void(const Bytes&)> handler);
    // Called whenever a wait has moved the clock, with the seconds since the start.
    void on_sleep(std::function<void(int64_t)> handler);
    // Told of every change of a file, with the platform's lock held.
    void on_disk_change(DiskObserver observer);
    // The wait with this number, counted from 1 on the calling thread, throws Stopped.
    void stop_after_sleeps(int count);
    void property(const std::string& name, const std::string& value);
    // The next message on the uevent socket, cut to the room that the receiver has. The receive
    // gives the count of bytes, unless told otherwise.
    void uevent(const std::string& message, std::optional<ssize_t> result = {});
    void fail_uevent_socket(int error);
    // Puts a line of the test's own into the transcript.
    void remark(const std::string& line);

    // Blocks until every scripted read and event is used up and a poll waits.
    void wait_until_idle();
    // Blocks until a read waits for data that a test has not scripted yet.
    void wait_until_reading();
    // Blocks until every uevent has been taken and dealt with, or whoever listened has ended.
    void wait_until_listening();
    // Lets the uevent socket fail; blocks until whoever listens, or is about to, has ended.
    void end_uevents();

    std::string property(const std::string& name);
    // What each write brought to the device or file.
    std::vector<Bytes> written(const std::string& path);
    // What the file at `path` holds; nothing where there is none.
    std::optional<Bytes> contents(const std::string& path);
    // The paths of all regular files below a directory, in alphabetical order.
    std::vector<std::string> files_below(const std::string& directory);
    // Lines of the transcript that begin with one of the prefixes: "open ", "close ", "ioctl ",
    // "write PATH SIZE", "pwrite PATH SIZE at OFFSET", the calls named at fail_call, "sleep ",
    // "usleep ", "set ", and log lines as "E ", "I ", "D ", "V ", "F ". Of a call that failed the
    // line ends in " = -1 ERRNO".
    std::vector<std::string> transcript(const std::vector<std::string>& prefixes);
    std::vector<std::string> log();
    size_t count(const std::string& line);  // lines that contain this text
    std::set<std::string> log_tags();
    int64_t now_ns();
    int open_descriptors();
    // How many calls on files and devices a test has made fail so far, or take nothing.
    size_t failures();
    int poll_passes();

    // The calls themselves, for the functions of platform/os.h.
    int open(const char* path, int flags, unsigned int mode = 0);
    int close(int fd);
    ssize_t read(int fd, void* buffer, size_t size);
    ssize_t pread(int fd, void* buffer, size_t size, int64_t offset);
    ssize_t write(int fd, const void* buffer, size_t size);
    ssize_t pwrite(int fd, const void* buffer, size_t size, int64_t offset);
    int sync(const std::string& call, int fd);
    int rename(const std::string& from, const std::string& to);  // replaces nothing
    int unlink(const std::string& path);
    int file_size_and_mode(int fd, int64_t* size, unsigned int* mode);
    int poll(struct pollfd* entries, size_t count, int timeout_ms);
    int ioctl(int fd, uint32_t request, void* argument);
    int pipe(int ends[2]);
    std::thread start_thread(std::function<void()> body);
    const std::vector<std::pair<std::string, uint8_t>>* list(const std::string& path);
    int open_uevent_socket();
    ssize_t receive_uevent(int fd, void* buffer, size_t size);
    void wait(int64_t nanoseconds, const std::string& line);
    void set_property(const std::string& name, const std::string& value);
    void* map_low(size_t size);
    void note_log(int priority, const char* tag, const char* text);

  private:
    // What a path may lead to; without a name it lives on for as long as somebody has it open.
    struct File {
        Bytes contents;
        unsigned int mode = 0100644;
        std::optional<int64_t> reported_size = {};
        int id = 0;
    };
    // A path: what is there, and what is scripted for it.
    struct Node {
        std::shared_ptr<File> file;  // null: nothing is there
        bool is_device = false;
        std::deque<int> open_errors;
        std::deque<Step> reads;
        std::deque<Step> writes;
        std::deque<short> events;
        std::vector<Bytes> written;
        std::function<void(const Bytes&)> on_write;
        bool hung_up = false;
    };
    struct Descriptor {
        std::string path;
        int flags = 0;
        std::shared_ptr<File> file;
        size_t position = 0;
    };

    // Files (scripted_files.cpp); with the mutex held.
    File& made(const std::string& path);
    void observe(const DiskChange& change) const;
    bool exists(const std::string& path) const;
    bool has_directory(const std::string& path) const;
    int open_error(const std::string& path, int flags);
    int finish_call(const std::string& call, int error);
    void store(Descriptor& descriptor, const Bytes& bytes, std::optional<int64_t> offset);

    void note(const std::string& line);
    short events_of(int fd, short wanted);
    bool anything_pending();
    ssize_t take_read(Node& node, void* buffer, size_t size);
    // Without an offset from or to the descriptor's position, which then moves on.
    ssize_t read_at(int fd, void* buffer, size_t size, std::optional<int64_t> offset);
    ssize_t write_at(int fd, const void* buffer, size_t size, std::optional<int64_t> offset);

    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, Node> nodes_;
    std::map<std::string, std::vector<std::pair<std::string, uint8_t>>> directories_;
    std::map<int, Descriptor> descriptors_;
    std::map<std::string, std::deque<int>> call_errors_;
    std::map<std::string, std::string> properties_;
    std::vector<std::string> transcript_;
    std::set<std::string> tags_;
    std::deque<int> poll_failures_;
    IoctlHandler ioctl_handler_;
    std::function<void(int64_t)> sleep_handler_;
    DiskObserver disk_observer_;
    int files_made_ = 0;
    size_t failures_ = 0;
    int next_descriptor_ = -1;
    int pipe_error_ = 0;
    int thread_error_ = 0;
    int pipes_ = 0;
    int waiting_polls_ = 0;
    int waiting_reads_ = 0;
    int poll_passes_ = 0;
    int sleeps_left_ = -1;
    std::thread::id stopped_thread_;
    std::deque<std::pair<std::string, std::optional<ssize_t>>> uevents_;
    bool uevents_end_ = false;
    int waiting_listeners_ = 0;
    int listeners_ended_ = 0;
    bool no_low_memory_ = false;
    int64_t now_ns_ = 0;
};

// The platform of the running test.
Platform& platform();

// Begins a test: a new, empty platform. No thread of an earlier test may still run.
void reset_platform();

}  // namespace scripted
