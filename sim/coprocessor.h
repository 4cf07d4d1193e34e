// SPDX-License-Identifier: Apache-2.0
// The virtual co-processor: the kernel driver's control device and the firmware behind the packet
// channels, as a model without threads, descriptors or a clock of its own. It believes nothing that
// the daemon sends: whatever breaks the rules is a failed check.
//
// Not thread-safe: one thread calls it. Observer::event is called from inside the calls below and
// must not call back into the model.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sim/behaviour.h"
#include "sim/device.h"
#include "sim/firmware_bundle.h"
#include "sim/observer.h"
#include "sim/reporter.h"

namespace sim {

class DfuClient;
class MiscDataReceiver;
class PacketChannel;
class RmaClient;
struct ControlRequest;

using MiscFiles = std::map<uint32_t, Bytes>;        // type of the resource -> contents
using BackingFiles = std::map<std::string, Bytes>;  // name of the file -> contents

struct ImageProgress {
    uint32_t id;
    std::string name;
    uint64_t done;  // bytes written to the flash
    uint64_t size;
    uint64_t being_written = 0;  // bytes besides, of the fragment that the flash is taking
};

enum class Phase { kIdle, kErase, kImages, kFinished };

const char* phase_name(Phase phase);

struct Status {
    int boot_mode = kFlashMode;  // the mode set last
    bool running = false;
    bool spi_busy = false;
    std::optional<uint32_t> boot_status;  // the value reported last
    bool wakelock_held = false;
    Phase phase = Phase::kIdle;
    uint64_t erase_done = 0;  // bytes that the host has had erased, of those it is told to
    uint64_t erase_total = 0;
    std::vector<ImageProgress> images;            // in the order in which they are asked for
    std::map<uint32_t, ImageProgress> misc_data;  // by type: what was received last
    uint64_t memory_done = 0;   // bytes read and written in memory on the host, of those that
    uint64_t memory_total = 0;  // the co-processor has in mind; 0 before it has begun
};

class Coprocessor : public Device {
  public:
    Coprocessor(Behaviour behaviour, FirmwareBundle firmware, Observer& observer);
    ~Coprocessor() override;
    Coprocessor(const Coprocessor&) = delete;
    Coprocessor& operator=(const Coprocessor&) = delete;

    void set_time(Time now) override;
    std::optional<Time> next_deadline() const override;

    // A restart that the kernel announces: powered down at once, and powered up again after
    // `length`, in the boot mode set last by then; without a length not at all. Events tell of
    // both. The power-up waits until the daemon has let go of the channels that hung up, so that a
    // restart takes the same course on a busy machine.
    void restart_announced(std::optional<Time> length);
    // Ends one that has no length.
    void announce_power_up() { power_up_at_ = reporter_->now(); }

    // The channels that are open hang up; the co-processor goes on.
    void hang_up_channels();

    // The whole device was switched off and on: nobody has anything open, and what is not in the
    // flash or in files of the host is as it was at first.
    void device_rebooted();

    int ioctl(uint32_t request, std::span<uint8_t> block, UserMemory& memory) override;

    int open_channel(Channel channel) override;
    void close_channel(Channel channel) override;
    bool is_open(Channel channel) const;
    int receive(Channel channel, std::span<const uint8_t> packet) override;
    bool readable(Channel channel) const override;
    bool hung_up(Channel channel) const override;
    Bytes take_packet(Channel channel) override;

    std::string remoteproc_state() const override;
    void write_wake_lock(std::string_view name) override;
    void write_wake_unlock(std::string_view name) override;

    const Status& status() const { return status_; }
    const FirmwareBundle& firmware() const { return firmware_; }
    const Faults& faults() const { return faults_; }
    const std::vector<std::string>& failures() const;  // every failed check so far, in words
    // Compares the flash with the images byte for byte (flash.bin with the platform block patched
    // where it belongs). False: *why, if not null, names the first difference.
    bool flash_matches(std::string* why) const;
    // Compares the misc data received since the co-processor was started with the files that the
    // host has of it; a type without a file must not have been sent. False: as above.
    bool misc_data_matches(const MiscFiles& files, std::string* why) const;
    // What the host must have in /data/vendor/aon once "rma ends" was told. Before that it may be
    // one write ahead, the one that it has not acknowledged: `with_unanswered` shows that.
    BackingFiles backing_files(bool with_unanswered = false) const;
    // The names of those that the host has acknowledged to be there.
    std::set<std::string> acknowledged_files() const;
    // The host's process has ended. What it held, the next one does not know of.
    void host_ended() { status_.wakelock_held = false; }

  private:
    int execute(const ControlRequest& request, UserMemory& memory);
    int set_spi_busy(bool busy);
    int reset(uint32_t word_address, UserMemory& memory);
    int query_version(uint32_t reply_address, UserMemory& memory);
    int load();
    int unload();
    int restart();
    int set_boot_mode(uint32_t mode);
    int set_boot_status(uint32_t value);
    std::optional<uint32_t> load_error();
    PacketChannel& find(Channel channel) const;
    void hang_up();
    bool any_hung_up() const;
    void power_up();
    void write_wake_file(const char* file, std::string_view name, bool hold);
    void emit_new_state();

    std::unique_ptr<Reporter> reporter_;
    Behaviour behaviour_;
    Faults faults_;
    FirmwareBundle firmware_;
    Status status_;
    std::optional<Time> power_up_at_;
    std::string emitted_state_;  // the fields of the last event about the state
    int running_mode_;           // the mode it was loaded in, while it runs
    std::unique_ptr<DfuClient> dfu_;
    std::unique_ptr<MiscDataReceiver> misc_data_;
    std::unique_ptr<RmaClient> rma_;
    std::vector<PacketChannel*> channels_;  // all of them
};

}  // namespace sim
