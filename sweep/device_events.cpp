// SPDX-License-Identifier: Apache-2.0
// What happens to the simulated device, and how what happened is done again.
#include <cerrno>
#include <chrono>
#include <cstring>

#include "sim/channel_names.h"
#include "sim/event.h"
#include "sim/remote_processors.h"
#include "sweep/device.h"

namespace sweep {
namespace {

Bytes bytes_of(const std::string& text) {
    return {text.begin(), text.end()};
}

std::string co_processor_uevent(int event) {
    using namespace std::string_literals;
    return "change@/devices/virtual/marlo_com/marlo_com_dev\0ACTION=change\0SUBSYSTEM=marlo_com\0"s +
           "MARLO_EVENT=" + std::to_string(event) + "\0"s;
}

// The memory that a recorded command pointed at; replies are lost.
class RecordedMemory : public sim::UserMemory {
  public:
    explicit RecordedMemory(std::string bytes) : bytes_(std::move(bytes)) {}
    bool read(uint32_t, std::span<uint8_t> into) override {
        if (into.size() > bytes_.size()) return false;
        std::memcpy(into.data(), bytes_.data(), into.size());
        return true;
    }
    bool write(uint32_t, std::span<const uint8_t>) override { return true; }

  private:
    const std::string bytes_;
};

// Hands a command's memory through and keeps what was read of it.
class WatchedMemory : public sim::UserMemory {
  public:
    explicit WatchedMemory(sim::UserMemory& memory) : memory_(memory) {}
    bool read(uint32_t address, std::span<uint8_t> into) override {
        const bool done = memory_.read(address, into);
        if (done) seen_.assign(into.begin(), into.end());
        return done;
    }
    bool write(uint32_t address, std::span<const uint8_t> from) override {
        return memory_.write(address, from);
    }
    const std::string& seen() const { return seen_; }

  private:
    sim::UserMemory& memory_;
    std::string seen_;
};

}  // namespace

Device::Device(const DeviceSetup& setup)
    : setup_(setup), misc_data_(setup.misc_data), properties_(setup.scenario->start.properties) {
    const sim::Start& start = setup.scenario->start;
    for (const char* directory : {"/data/vendor/aon", "/sys/class/remoteproc"}) {
        files_.add_directory(directory);
    }
    for (const auto& [path, bytes] : setup.files) files_.add(path, bytes);
    for (const sim::RemoteProcessor& processor : sim::kRemoteProcessors) {
        const std::string directory = std::string("/sys/class/remoteproc/") + processor.directory;
        files_.add(directory + "/name", bytes_of(processor.name));
        files_.add(directory + "/state", bytes_of(processor.state ? processor.state : "offline\n"));
    }
    files_.add("/sys/class/pmic-lpm/pmic_twm_exit", bytes_of(start.twm_exit));
    const std::string soc = "/sys/devices/soc0/";
    files_.add(soc + "platform_subtype_id", bytes_of(start.platform.platform_subtype));
    files_.add(soc + "hw_platform", bytes_of(start.platform.hw_platform));
    files_.add("/sys/kernel/dload/dload_mode", bytes_of(start.platform.download_mode));
    make_coprocessor();
}

void Device::make_coprocessor() {
    sim::Behaviour behaviour = sim::behaviour_for(*setup_.scenario, setup_.firmware);
    behaviour.fragment_size = setup_.fragment_size;
    // Each of its steps is a step of the long one, which takes fifty times as many.
    behaviour.rma = sim::RmaLength::kShort;
    coprocessor_ = std::make_unique<sim::Coprocessor>(behaviour, setup_.firmware,
                                                      static_cast<sim::Observer&>(*this));
}

void Device::event(const sim::Event& event) {
    if (event.kind != sim::EventKind::kUevent) return;
    uevents_.push_back(co_processor_uevent(event.fields.at("marlo_event")));
}

void Device::note(Operation operation) {
    if (recording_) trace_.push_back(std::move(operation));
}

void Device::advance(int64_t now_ns) {
    note({Operation::kAdvance, now_ns});
    now_ = now_ns;
    coprocessor_->set_time(std::chrono::nanoseconds(now_ns));
}

std::optional<int64_t> Device::next_event() const {
    const auto deadline = coprocessor_->next_deadline();
    return deadline ? std::optional(deadline->count()) : std::nullopt;
}

int64_t Device::ioctl(int fd, uint32_t number, std::span<uint8_t> block, sim::UserMemory& memory) {
    const std::string words(block.begin(), block.end());
    WatchedMemory watched(memory);
    ++progress_;
    const auto found = descriptors_.find(fd);
    int64_t result = -ENOTTY;
    if (found == descriptors_.end()) result = -EBADF;
    if (found != descriptors_.end() && found->second.kind == NodeKind::kControl) {
        result = coprocessor_->ioctl(number, block, watched);
    }
    note({Operation::kIoctl, fd, number, -1, words, watched.seen()});
    return result;
}

void Device::hang_up(std::optional<int64_t> back_after_ns) {
    note({Operation::kHangUp, back_after_ns.value_or(-1)});
    ++progress_;
    coprocessor_->hang_up_channels();
    const int64_t back = back_after_ns ? now_ + *back_after_ns : INT64_MAX;
    for (const sim::ChannelName& name : sim::kChannelNames) {
        Stream& stream = streams_[name.path];
        stream.packets.clear();
        stream.position = 0;
        stream.closed_until = back;
    }
}

void Device::restart(std::optional<int64_t> power_after_ns) {
    note({Operation::kRestart, power_after_ns.value_or(-1)});
    ++progress_;
    for (auto& [path, stream] : streams_) stream = {};
    std::optional<sim::Time> length;
    if (power_after_ns) length = sim::Time(*power_after_ns);
    coprocessor_->restart_announced(length);
}

void Device::disturb_next_packet(Disturbance kind, uint32_t value) {
    note({Operation::kDisturb, static_cast<int64_t>(kind), value});
    disturbance_ = kind;
    disturbance_value_ = value;
}

void Device::lose_next_write() {
    note({Operation::kLoseWrite});
    lose_next_write_ = true;
}

void Device::uevent(const std::string& message) {
    note({Operation::kUevent, 0, 0, -1, message});
    uevents_.push_front(message);
}

void Device::daemon_dies() {
    may_abort_ = must_abort_ = false;
    note({Operation::kDaemonDies});
    const bool recorded = std::exchange(recording_, false);
    while (!descriptors_.empty()) close(descriptors_.begin()->first);
    uevents_.clear();
    recording_ = recorded;
}

void Device::reboot() {
    note({Operation::kReboot});
    daemon_dies();
    for (auto& [path, stream] : streams_) stream = {};
    coprocessor_->device_rebooted();
    auto before = setup_.scenario->start.properties;
    for (const auto& [name, value] : properties_) {
        if (name.starts_with("persist.")) before[name] = value;
    }
    properties_ = before;
}

void Device::replay(const Trace& trace) {
    for (const Operation& operation : trace) redo(operation);
}

void Device::redo(const Operation& done) {
    const auto offset = done.third < 0 ? std::nullopt : std::optional(done.third);
    const auto time = done.first < 0 ? std::nullopt : std::optional(done.first);
    const int fd = static_cast<int>(done.first);
    switch (done.kind) {
        case Operation::kAdvance:
            return advance(done.first);
        case Operation::kOpen:
            open(done.text, fd, static_cast<uint32_t>(done.second));
            return;
        case Operation::kClose:
            close(fd);
            return;
        case Operation::kRead: {
            Bytes into(static_cast<size_t>(done.second));
            read(fd, into, offset);
            return;
        }
        case Operation::kWrite:
            write(fd, bytes_of(done.text), offset);
            return;
        case Operation::kRename:
            rename(done.text, done.other);
            return;
        case Operation::kUnlink:
            unlink(done.text);
            return;
        case Operation::kIoctl: {
            Bytes block = bytes_of(done.text);
            RecordedMemory memory(done.other);
            ioctl(fd, static_cast<uint32_t>(done.second), block, memory);
            return;
        }
        case Operation::kReceive:
            receive_uevent();
            return;
        case Operation::kSetProperty:
            return set_property(done.text, done.other);
        case Operation::kHangUp:
            return hang_up(time);
        case Operation::kRestart:
            return restart(time);
        case Operation::kDisturb:
            return disturb_next_packet(static_cast<Disturbance>(done.first),
                                       static_cast<uint32_t>(done.second));
        case Operation::kLoseWrite:
            return lose_next_write();
        case Operation::kUevent:
            return uevent(done.text);
        case Operation::kPipe: {
            int ends[2];
            make_pipe(ends);
            return;
        }
        case Operation::kOpenUevents:
            open_uevents();
            return;
        case Operation::kDaemonDies:
            return daemon_dies();
        case Operation::kReboot:
            return reboot();
    }
}

}  // namespace sweep
