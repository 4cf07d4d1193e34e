// SPDX-License-Identifier: Apache-2.0
#include "sim/coprocessor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "sim/control_request.h"
#include "sim/dfu_client.h"
#include "sim/event.h"
#include "sim/misc_data_receiver.h"
#include "sim/reporter.h"
#include "sim/rma_client.h"

namespace sim {

namespace {

constexpr uint32_t kResetWord = 0x08000000;

// What a log or a transcript can show of bytes that the daemon wrote.
std::string printable(std::string text) {
    constexpr size_t kLongest = 60;
    if (text.size() > kLongest) text.resize(kLongest);
    for (char& c : text) {
        if (c < ' ' || c > '~') c = '?';
    }
    return text;
}

// 308 bytes: a word that nobody interprets, the KAPI word, three texts of 100 bytes.
Bytes version_record(const Versions& versions) {
    Bytes record = {1, 0, 0, 0};
    for (int shift = 0; shift < 32; shift += 8) {
        record.push_back(static_cast<uint8_t>(versions.kapi >> shift));
    }
    for (const std::string* text : {&versions.apps, &versions.dsp, &versions.bt}) {
        constexpr size_t kTextSize = 100;
        Bytes field(text->begin(), text->end());
        field.resize(std::min(field.size(), kTextSize - 1));
        field.resize(kTextSize);
        record.insert(record.end(), field.begin(), field.end());
    }
    return record;
}

}  // namespace

const char* phase_name(Phase phase) {
    switch (phase) {
        case Phase::kIdle:
            return "idle";
        case Phase::kErase:
            return "erase";
        case Phase::kImages:
            return "images";
        case Phase::kFinished:
            return "finished";
    }
    return "?";
}

Coprocessor::Coprocessor(Behaviour behaviour, FirmwareBundle firmware, Observer& observer)
    : reporter_(std::make_unique<Reporter>(observer)),
      behaviour_(std::move(behaviour)),
      faults_(behaviour_.faults, *reporter_),
      firmware_(std::move(firmware)),
      running_mode_(behaviour_.boot_mode),
      dfu_(std::make_unique<DfuClient>(behaviour_, faults_, firmware_, *reporter_, status_)),
      misc_data_(std::make_unique<MiscDataReceiver>(behaviour_, faults_, *reporter_, status_)),
      rma_(std::make_unique<RmaClient>(behaviour_, faults_, *reporter_, status_)),
      channels_{dfu_.get(), misc_data_.get(), rma_.get()} {
    status_.boot_mode = behaviour_.boot_mode;
    status_.running = behaviour_.running;
}

Coprocessor::~Coprocessor() = default;

void Coprocessor::set_time(Time now) {
    reporter_->set_time(now);
    if (power_up_at_ && *power_up_at_ <= reporter_->now() && !any_hung_up()) power_up();
    for (PacketChannel* channel : channels_) channel->clock_moved();
}

std::optional<Time> Coprocessor::next_deadline() const {
    std::optional<Time> next;
    if (!any_hung_up()) next = power_up_at_;
    for (const PacketChannel* channel : channels_) {
        const auto deadline = channel->next_deadline();
        if (deadline && (!next || *deadline < *next)) next = deadline;
    }
    return next;
}

const std::vector<std::string>& Coprocessor::failures() const {
    return reporter_->failures();
}

bool Coprocessor::flash_matches(std::string* why) const {
    return dfu_->flash_matches(why);
}

bool Coprocessor::misc_data_matches(const MiscFiles& files, std::string* why) const {
    return misc_data_->matches(files, why);
}

BackingFiles Coprocessor::backing_files(bool with_unanswered) const {
    return rma_->backing_files(with_unanswered);
}

std::set<std::string> Coprocessor::acknowledged_files() const {
    return rma_->acknowledged_files();
}

std::string Coprocessor::remoteproc_state() const {
    return status_.running ? "running\n" : "offline\n";
}

void Coprocessor::emit_new_state() {
    nlohmann::json state = {{"boot_mode", boot_mode_name(status_.boot_mode)},
                            {"running", status_.running},
                            {"spi_busy", status_.spi_busy}};
    std::string text = state.dump();
    if (text == emitted_state_) return;
    emitted_state_ = std::move(text);
    reporter_->emit(EventKind::kState, std::move(state));
}

int Coprocessor::ioctl(uint32_t number, std::span<uint8_t> block, UserMemory& memory) {
    const ControlRequest request = ControlRequest::decode(number, block);
    const std::string error = request.error();
    int result = -EINVAL;
    if (error.empty()) {
        result = execute(request, memory);
    } else {
        reporter_->fail(error);
    }
    nlohmann::json fields = request.describe();
    fields["result"] = result;
    if (request.command == Command::kGetBootMode) fields["mode"] = boot_mode_name(result);
    reporter_->emit(EventKind::kIoctl, std::move(fields));
    emit_new_state();
    return result;
}

int Coprocessor::execute(const ControlRequest& request, UserMemory& memory) {
    switch (request.command) {
        case Command::kSpiFree:
            return set_spi_busy(false);
        case Command::kSpiBusy:
            return set_spi_busy(true);
        case Command::kReset:
            return reset(request.value(), memory);
        case Command::kVersion:
            return query_version(request.reply_address(), memory);
        case Command::kSoftReset:
            return restart();
        case Command::kLoad:
            return load();
        case Command::kUnload:
            return unload();
        case Command::kSetBootMode:
            return set_boot_mode(request.value());
        case Command::kGetBootMode:
            return status_.boot_mode;
        case Command::kBootStatus:
            return set_boot_status(request.value());
        case Command::kTwmExit:
        case Command::kSaveDump:
            return 0;
        case Command::kUnknown:
            break;
    }
    return -EINVAL;
}

int Coprocessor::set_spi_busy(bool busy) {
    status_.spi_busy = busy;
    return 0;
}

int Coprocessor::reset(uint32_t word_address, UserMemory& memory) {
    std::array<uint8_t, 4> bytes{};
    if (!memory.read(word_address, bytes)) {
        reporter_->fail("reset: the data word's address " + dfu::hex(word_address) +
                        " is not the daemon's memory");
        return -EFAULT;
    }
    const uint32_t word = dfu::word_at(bytes, 0);
    if (word != kResetWord) {
        reporter_->fail("reset: data word expected " + dfu::hex(kResetWord) + ", got " +
                        dfu::hex(word));
        return -EINVAL;
    }
    return restart();
}

int Coprocessor::query_version(uint32_t reply_address, UserMemory& memory) {
    if (!status_.running) return -EIO;
    if (const auto error = faults_.strikes(Fault::kVersionQueryFails)) {
        return -static_cast<int>(*error);
    }
    if (!memory.write(reply_address, version_record(behaviour_.versions))) {
        reporter_->fail("query version: the reply's address " + dfu::hex(reply_address) +
                        " is not the daemon's memory");
        return -EFAULT;
    }
    return 0;
}

std::optional<uint32_t> Coprocessor::load_error() {
    auto error = faults_.strikes(Fault::kLoadFails);
    if (status_.boot_mode != kFlashMode) return error;
    for (const Fault fault : {Fault::kFlashLoadFails, Fault::kFlashFirmwareDamaged}) {
        if (fault == Fault::kFlashFirmwareDamaged && dfu_->finished_once()) continue;
        const auto other = faults_.strikes(fault);
        if (!error) error = other;
    }
    return error;
}

int Coprocessor::load() {
    if (!status_.spi_busy && !behaviour_.misses_requests)
        reporter_->fail("load while the SPI bus is not marked busy");
    if (const auto error = load_error()) return -static_cast<int>(*error);
    if (!status_.running) running_mode_ = status_.boot_mode;
    status_.running = true;
    return 0;
}

void Coprocessor::hang_up() {
    hang_up_channels();
    misc_data_->forget();
}

void Coprocessor::hang_up_channels() {
    for (PacketChannel* channel : channels_) channel->hang_up();
}

void Coprocessor::device_rebooted() {
    hang_up();
    for (PacketChannel* channel : channels_) channel->close();
    power_up_at_.reset();
    status_.boot_mode = behaviour_.boot_mode;
    status_.running = behaviour_.running;
    running_mode_ = behaviour_.boot_mode;
    status_.spi_busy = false;
    status_.boot_status.reset();
    status_.wakelock_held = false;
    emit_new_state();
}

void Coprocessor::restart_announced(std::optional<Time> length) {
    unload();
    power_up_at_.reset();
    if (length) power_up_at_ = reporter_->now() + *length;
    emit_new_state();
    reporter_->emit(EventKind::kUevent, {{"marlo_event", kPoweredDown}});
}

bool Coprocessor::any_hung_up() const {
    return std::any_of(channels_.begin(), channels_.end(),
                       [](const PacketChannel* channel) { return channel->hung_up(); });
}

void Coprocessor::power_up() {
    power_up_at_.reset();
    // Unless the daemon has loaded it meanwhile, which is announced as well.
    if (!status_.running) running_mode_ = status_.boot_mode;
    status_.running = true;
    emit_new_state();
    reporter_->emit(EventKind::kUevent, {{"marlo_event", kPoweredUp}});
}

int Coprocessor::unload() {
    hang_up();
    status_.running = false;
    return 0;
}

// A running co-processor comes up again by itself, in the boot mode set last; one that does not run
// stays off.
int Coprocessor::restart() {
    if (!status_.running) return 0;
    hang_up();
    running_mode_ = status_.boot_mode;
    return 0;
}

int Coprocessor::set_boot_mode(uint32_t mode) {
    if (mode != kHostMode && mode != kFlashMode) {
        reporter_->fail("set boot mode: mode expected 0 or 1, got " + std::to_string(mode));
        return -EINVAL;
    }
    status_.boot_mode = static_cast<int>(mode);
    return 0;
}

int Coprocessor::set_boot_status(uint32_t value) {
    if (value < 1 || value > 3) {
        reporter_->fail("boot status: expected 1 to 3, got " + std::to_string(value));
        return -EINVAL;
    }
    status_.boot_status = value;
    return 0;
}

PacketChannel& Coprocessor::find(Channel channel) const {
    switch (channel) {
        case Channel::kDfu:
            break;
        case Channel::kMiscData:
            return *misc_data_;
        case Channel::kRma:
            return *rma_;
    }
    return *dfu_;
}

int Coprocessor::open_channel(Channel channel) {
    return status_.running ? find(channel).open() : -ENODEV;
}

void Coprocessor::close_channel(Channel channel) {
    find(channel).close();
}

bool Coprocessor::is_open(Channel channel) const {
    return find(channel).is_open();
}

int Coprocessor::receive(Channel channel, std::span<const uint8_t> packet) {
    PacketChannel& receiver = find(channel);
    if (!receiver.is_open()) return -EBADF;
    if (receiver.hung_up()) return -EPIPE;
    if (!status_.wakelock_held) {
        reporter_->fail("packet of " + std::to_string(packet.size()) +
                        " bytes written without the wakelock");
    }
    if (const auto length = faults_.strikes(Fault::kRestart)) {
        restart_announced(*length == kNever
                              ? std::nullopt
                              : std::optional<Time>(std::chrono::milliseconds(*length)));
        return static_cast<int>(packet.size());
    }
    // Misc data and memory partitions are asked for by what has no flash to boot from, whatever
    // boot mode was set.
    if (channel == Channel::kDfu && running_mode_ != kHostMode) {
        reporter_->fail("download packet in boot mode " + boot_mode_name(running_mode_));
    } else {
        receiver.receive(packet);
    }
    return static_cast<int>(packet.size());
}

bool Coprocessor::readable(Channel channel) const {
    return find(channel).readable();
}

bool Coprocessor::hung_up(Channel channel) const {
    return find(channel).hung_up();
}

Bytes Coprocessor::take_packet(Channel channel) {
    return find(channel).take_packet();
}

void Coprocessor::write_wake_lock(std::string_view name) {
    write_wake_file("wake_lock", name, true);
}

void Coprocessor::write_wake_unlock(std::string_view name) {
    write_wake_file("wake_unlock", name, false);
}

void Coprocessor::write_wake_file(const char* file, std::string_view name, bool hold) {
    // The daemon writes the name with its terminating NUL.
    using namespace std::string_view_literals;
    constexpr std::string_view kName = "MARLODAEMON_WAKEUP\0"sv;
    const std::string text(name.substr(0, name.find('\0')));
    reporter_->emit(EventKind::kSysfs, {{"file", file}, {"text", printable(text)}});
    if (name != kName) {
        reporter_->fail(std::string(file) +
                        ": expected MARLODAEMON_WAKEUP and a NUL (19 bytes), got " +
                        std::to_string(name.size()) + " bytes \"" + printable(text) + "\"");
        return;
    }
    if (status_.wakelock_held == hold) {
        reporter_->fail(std::string(file) +
                        (hold ? ": the wakelock is held already" : ": the wakelock is not held"));
    }
    status_.wakelock_held = hold;
}

}  // namespace sim
