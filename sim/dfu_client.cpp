// SPDX-License-Identifier: Apache-2.0
#include "sim/dfu_client.h"

#include <cerrno>
#include <utility>

#include "sim/event.h"

namespace sim {

using dfu::hex;
using dfu::kHeaderSize;
using dfu::message_name;
using dfu::word_at;

namespace {

constexpr Time kForEver = Time::max();

}  // namespace

DfuClient::DfuClient(const Behaviour& behaviour, Faults& faults, const FirmwareBundle& firmware,
                     Reporter& reporter, Status& status)
    : PacketChannel("dfu", reporter),
      behaviour_(behaviour),
      faults_(faults),
      firmware_(firmware),
      status_(status),
      range_requested_(firmware.erase_ranges.size(), false),
      range_refused_(firmware.erase_ranges.size(), false) {
    status_.erase_total = firmware.bytes_to_erase();
    for (const Image& image : firmware.images) {
        status_.images.push_back({image.id, image.name, 0, image.data.size()});
    }
}

int DfuClient::opening_error() {
    if (back_at_ && reporter_.now() < *back_at_) return -ENODEV;
    back_at_.reset();
    const auto error = faults_.strikes(Fault::kDfuChannelMissing);
    return error ? -static_cast<int>(*error) : 0;
}

// A host that opens the channel begins from the start or asks for the state.
void DfuClient::on_open() {
    next_erase_ = 0;
}

void DfuClient::on_hang_up() {
    if (status_.phase == Phase::kIdle || status_.phase == Phase::kErase) erases_lost_ = true;
    finish_work();
}

// True: the fault strikes, and the channel hangs up.
bool DfuClient::hangs_up(Fault fault) {
    const auto milliseconds = faults_.strikes(fault);
    if (!milliseconds) return false;
    back_at_ = *milliseconds == kNever ? kForEver
                                       : reporter_.now() + std::chrono::milliseconds(*milliseconds);
    hang_up();
    return true;
}

void DfuClient::receive(std::span<const uint8_t> packet) {
    emit_received(dfu::describe(packet));
    if (hangs_up(Fault::kHangUpAtPacket)) return;
    const std::string error = dfu::header_error(packet);
    if (!error.empty()) {
        reporter_.fail(error);
        return;
    }
    const uint32_t id = word_at(packet, 0);
    if (work_) {
        reporter_.fail(message_name(id) + " while the one before is not answered yet");
        return;
    }
    switch (id) {
        case dfu::kSpecialRequest:
            return special_request(packet);
        case dfu::kUpdateRequest:
            return update_request(packet);
        case dfu::kInfoResponse:
            return info_response(packet);
        case dfu::kOffsetResponse:
            return offset_response(packet);
        case dfu::kSessionEndResponse:
            return session_end_response(packet);
        default:
            reporter_.fail(message_name(id) + " is no message of the host");
    }
}

// True if the packet has this length and these payload words; a difference is a failed check.
bool DfuClient::check_words(std::span<const uint8_t> packet, size_t length,
                            std::initializer_list<uint32_t> words) {
    const std::string name = message_name(word_at(packet, 0));
    if (packet.size() != length) {
        reporter_.fail(name + ": length expected " + std::to_string(length) + ", got " +
                       std::to_string(packet.size()));
        return false;
    }
    size_t at = kHeaderSize;
    for (uint32_t word : words) {
        if (word_at(packet, at) != word) {
            reporter_.fail(name + ": word at " + std::to_string(at) + " expected " + hex(word) +
                           ", got " + hex(word_at(packet, at)));
            return false;
        }
        at += 4;
    }
    return true;
}

void DfuClient::send_message(std::initializer_list<uint32_t> payload, uint32_t id) {
    Bytes packet = dfu::make_packet(id, payload);
    nlohmann::json description = dfu::describe(packet);
    send(std::move(packet), std::move(description));
}

void DfuClient::work(uint64_t bytes, bool erasing, std::function<void()> done) {
    Time duration{0};
    if (behaviour_.flash_rate != 0) {
        const double seconds =
            static_cast<double>(bytes) / static_cast<double>(behaviour_.flash_rate);
        duration = std::chrono::duration_cast<Time>(std::chrono::duration<double>(seconds));
    }
    const Time now = reporter_.now();
    const uint64_t erased = status_.erase_done;
    work_ = Work{now, now + duration, bytes, erasing, erased, std::move(done)};
    if (duration == Time::zero()) finish_work();
}

void DfuClient::finish_work() {
    if (!work_) return;
    const Work finished = *std::exchange(work_, std::nullopt);
    if (finished.erasing) {
        status_.erase_done = finished.erased_before + finished.bytes;
    } else {
        status_.images[image_index_].being_written = 0;
    }
    finished.done();
}

void DfuClient::clock_moved() {
    if (!work_) return;
    if (work_->due <= reporter_.now()) return finish_work();
    const double part = static_cast<double>((reporter_.now() - work_->start).count()) /
                        static_cast<double>((work_->due - work_->start).count());
    const auto bytes = static_cast<uint64_t>(part * static_cast<double>(work_->bytes));
    if (work_->erasing) {
        status_.erase_done = work_->erased_before + bytes;
    } else {
        status_.images[image_index_].being_written = bytes;
    }
}

std::optional<Time> DfuClient::next_deadline() const {
    if (!work_) return {};
    return work_->due;
}

}  // namespace sim
