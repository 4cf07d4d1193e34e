// SPDX-License-Identifier: Apache-2.0
// The simulated device around the product: its files, its properties, its kernel's announcements,
// and the virtual co-processor behind the device nodes. It knows neither threads nor waiting: a
// call that would wait says so. Everything that is done to it is written down, and what is written
// down can be done again to another one.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "sim/coprocessor.h"
#include "sim/scenario.h"
#include "sweep/disturbance.h"
#include "sweep/memory_files.h"
#include "sweep/operation.h"

namespace sweep {

// Beside the negated errno of a call.
constexpr int64_t kWouldWait = INT64_MIN;

// Which kind of thing a descriptor or a path leads to.
enum class NodeKind { kFile, kControl, kChannel, kWakeLock, kWakeUnlock, kPipe, kUevents };
NodeKind kind_of(const std::string& path);

struct DeviceSetup {
    const sim::Scenario* scenario;
    sim::FirmwareBundle firmware;
    sim::MiscFiles misc_data;
    std::map<std::string, Bytes> files;  // what the device ships
    uint32_t fragment_size;
};

class Device : private sim::Observer {
  public:
    explicit Device(const DeviceSetup& setup);

    void advance(int64_t now_ns);
    int64_t now() const { return now_; }
    std::optional<int64_t> next_event() const;

    int64_t open(const std::string& path, int flags, uint32_t mode);
    int64_t close(int fd);
    // Without an offset at the descriptor's position, which moves on.
    int64_t read(int fd, std::span<uint8_t> into, std::optional<int64_t> offset);
    int64_t write(int fd, std::span<const uint8_t> bytes, std::optional<int64_t> offset);
    int64_t rename(const std::string& from, const std::string& to);
    int64_t unlink(const std::string& path);
    // `memory`: what the words of the block point at.
    int64_t ioctl(int fd, uint32_t number, std::span<uint8_t> block, sim::UserMemory& memory);
    int64_t make_pipe(int ends[2]);
    bool is_open(int fd) const { return descriptors_.count(fd) != 0; }
    const std::string& path_of(int fd) const;
    std::shared_ptr<MemoryFiles::File> file_of(int fd) const;
    short poll_events(int fd);  // POLLIN, POLLOUT, POLLHUP, POLLNVAL
    int open_uevents();
    bool has_uevent() const { return !uevents_.empty(); }
    const std::string& next_uevent() const { return uevents_.front(); }
    std::string receive_uevent();
    std::string property(const std::string& name) const;
    void set_property(const std::string& name, const std::string& value);

    // What goes wrong.
    void hang_up(std::optional<int64_t> back_after_ns);  // all channels that are open
    void restart(std::optional<int64_t> power_after_ns);
    // Asked about each packet to the daemon.
    using PacketHook =
        std::function<std::pair<Disturbance, uint32_t>(const std::string& path, const Bytes&)>;
    void set_packet_hook(PacketHook hook) { packet_hook_ = std::move(hook); }
    void lose_next_write();                   // the next packet from the daemon does not arrive
    void uevent(const std::string& message);  // comes in front of the others
    void daemon_dies();                       // closes all that it has open
    void reboot();  // keeps flash, files and persistent properties; the daemon is gone, too

    void replay(const Trace& trace);
    const Trace& trace() const { return trace_; }
    void stop_recording() { recording_ = false; }

    const sim::Coprocessor& coprocessor() const { return *coprocessor_; }
    const MemoryFiles& files() const { return files_; }
    const sim::MiscFiles& misc_data() const { return misc_data_; }
    size_t open_descriptors() const { return descriptors_.size(); }
    // Packets, commands, openings, files written, uevents: what is no mere waiting.
    uint64_t progress() const { return progress_; }
    // Whether the daemon has read the beginning, or all, of more than a download message can have.
    bool may_abort() const { return may_abort_; }
    bool must_abort() const { return must_abort_; }

  private:
    struct Descriptor {
        std::string path;
        NodeKind kind;
        std::shared_ptr<MemoryFiles::File> file;
        size_t position = 0;
    };
    // What is on its way to the daemon.
    struct Stream {
        std::deque<Bytes> packets;
        size_t position = 0;  // in the first one
        Bytes last;
        int64_t closed_until = 0;
    };

    void event(const sim::Event& event) override;
    void note(Operation operation);
    void make_coprocessor();
    int add_descriptor(Descriptor descriptor);
    int64_t read_channel(const Descriptor& descriptor, std::span<uint8_t> into);
    int64_t write_channel(const Descriptor& descriptor, std::span<const uint8_t> bytes);
    static int64_t read_file(Descriptor& descriptor, std::span<uint8_t> into,
                             std::optional<int64_t> offset);
    static int64_t write_file(Descriptor& descriptor, std::span<const uint8_t> bytes,
                              std::optional<int64_t> offset);
    void note_length(const std::string& path, const Bytes& packet, size_t read);
    void fetch_packets(const std::string& path);
    void disturb_next_packet(Disturbance kind, uint32_t value);
    void redo(const Operation& operation);

    const DeviceSetup& setup_;
    MemoryFiles files_;
    sim::MiscFiles misc_data_;
    std::map<std::string, std::string> properties_;
    std::unique_ptr<sim::Coprocessor> coprocessor_;
    std::map<int, Descriptor> descriptors_;
    std::map<std::string, Stream> streams_;  // by the channel's path
    std::deque<std::string> uevents_;
    PacketHook packet_hook_;
    Disturbance disturbance_ = Disturbance::kNone;  // of the next packet
    uint32_t disturbance_value_ = 0;
    bool lose_next_write_ = false;
    bool may_abort_ = false;
    bool must_abort_ = false;
    int pipes_ = 0;
    int64_t now_ = 0;
    uint64_t progress_ = 0;
    bool recording_ = true;
    Trace trace_;
};

}  // namespace sweep
