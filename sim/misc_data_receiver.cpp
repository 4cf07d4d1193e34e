// SPDX-License-Identifier: Apache-2.0
#include "sim/misc_data_receiver.h"

#include <algorithm>
#include <utility>

#include "sim/event.h"

namespace sim {

namespace {

constexpr int kAttempts = 3;  // of the host at each resource
constexpr uint32_t kTaken = 0;
constexpr uint32_t kBroken = 1;      // the status that a packet gets which breaks the rules
constexpr uint32_t kIncomplete = 2;  // the status of a CRC when data before it was refused
constexpr uint32_t kSmallestLimit = misc::kHeaderSize + 1;

std::string type_words(uint32_t type) {
    return "type " + std::to_string(type);
}

}  // namespace

MiscDataReceiver::MiscDataReceiver(const Behaviour& behaviour, Faults& faults, Reporter& reporter,
                                   Status& status)
    : PacketChannel("misc", reporter), behaviour_(behaviour), faults_(faults), status_(status) {}

void MiscDataReceiver::on_open() {
    awaited_ = Awaited::kStart;
    type_.reset();
    attempts_ = 0;
    refused_ = false;
}

uint32_t MiscDataReceiver::limit() const {
    return std::max(behaviour_.payload_limit, kSmallestLimit);
}

void MiscDataReceiver::receive(std::span<const uint8_t> packet) {
    emit_received(misc::describe(packet));
    const uint32_t kind = misc::header_of(packet).kind;
    if (readable()) {
        reporter_.fail(misc::kind_name(kind) + " before the answer to the packet before was read");
    }
    // A packet that gets no answer counts as lost.
    if (faults_.strikes(Fault::kMiscAnswerMissing)) return refused(kind);
    const uint32_t status = take(packet);
    if (status != kTaken) refused(kind);
    const bool tell_limit = kind == misc::kStart && status == kTaken;
    Bytes answer = misc::make_answer(packet, status, tell_limit ? limit() : 0);
    nlohmann::json description = misc::describe_answer(answer);
    send(std::move(answer), std::move(description));
}

// The host looks at the status of the last data packet no more than at that of the finish packet:
// the CRC follows the one and nothing follows the other. After any other refusal it starts anew.
void MiscDataReceiver::refused(uint32_t kind) {
    refused_ = true;
    awaited_ = Awaited::kStart;
    if (kind == misc::kLastData) awaited_ = Awaited::kCrc;
    if (kind == misc::kFinish) awaited_ = Awaited::kNothing;
}

uint32_t MiscDataReceiver::breach(const std::string& what) {
    reporter_.fail(what);
    return kBroken;
}

uint32_t MiscDataReceiver::take(std::span<const uint8_t> packet) {
    const std::string error = misc::shape_error(packet);
    if (!error.empty()) return breach(error);
    const misc::Header header = misc::header_of(packet);
    const auto payload = packet.subspan(misc::kHeaderSize);
    switch (header.kind) {
        case misc::kStart:
            return start(header);
        case misc::kCrc:
            return crc(header, word_at(payload, 0));
        case misc::kFinish:
            return finish();
        default:
            return data(header, payload);
    }
}

std::string MiscDataReceiver::start_error(const misc::Header& header) const {
    const std::string name = "start of " + type_words(header.type);
    if (awaited_ != Awaited::kStart) return awaited_error(name, Awaited::kStart, header.type);
    if (!type_) return "";
    if (header.type < *type_) return name + " after " + type_words(*type_);
    const std::string attempts = std::to_string(attempts_) + " of " + std::to_string(kAttempts);
    if (header.type > *type_) {
        if (!refused_ || attempts_ == kAttempts) return "";
        return name + " after " + attempts + " attempts at " + type_words(*type_);
    }
    if (!refused_) return name + ", which is complete already";
    if (attempts_ == kAttempts) return name + " after " + attempts + " attempts at it";
    return "";
}

uint32_t MiscDataReceiver::start(const misc::Header& header) {
    const std::string error = start_error(header);
    if (!error.empty()) return breach(error);
    if (!type_) {
        memory_.clear();
        reporter_.emit(EventKind::kPhase, {{"phase", "misc begins"}});
    }
    attempts_ = type_ == header.type ? attempts_ + 1 : 1;
    type_ = header.type;
    if (const auto status = faults_.strikes(Fault::kMiscStartRefused)) return *status;
    refused_ = false;
    total_ = header.size;
    sequence_ = 0;
    data_.clear();
    status_.misc_data[header.type] = {header.type, type_words(header.type), 0, total_};
    awaited_ = Awaited::kData;
    return kTaken;
}

// What is wrong with a packet that wants the channel in state `wanted`, for the resource under way.
std::string MiscDataReceiver::awaited_error(const std::string& name, Awaited wanted,
                                            uint32_t type) const {
    if (awaited_ != wanted) {
        switch (awaited_) {
            case Awaited::kStart:
                return name + " without a start";
            case Awaited::kData:
                return name + " before the last data";
            case Awaited::kCrc:
                return name + " before the CRC";
            case Awaited::kNothing:
                return name + " after the finish";
        }
    }
    return type == type_ ? "" : differs(name + ": type", *type_, type);
}

std::string MiscDataReceiver::data_error(const misc::Header& header) const {
    const std::string name = misc::kind_name(header.kind);
    std::string error = awaited_error(name, Awaited::kData, header.type);
    if (!error.empty()) return error;
    if (header.sequence != sequence_ + 1) {
        return differs(name + ": sequence", sequence_ + 1, header.sequence);
    }
    const size_t rest = total_ - data_.size();
    const size_t chunk = limit() - misc::kHeaderSize;
    const bool last = rest <= chunk + 1;
    if ((header.kind == misc::kLastData) != last) {
        return name + " with " + std::to_string(rest) + " bytes to come: " +
               differs("kind", last ? misc::kLastData : misc::kData, header.kind);
    }
    const size_t size = last ? rest : chunk;
    if (header.size != size) return differs(name + ": payload size", size, header.size);
    return "";
}

uint32_t MiscDataReceiver::data(const misc::Header& header, std::span<const uint8_t> payload) {
    const std::string error = data_error(header);
    if (!error.empty()) return breach(error);
    if (const auto status = faults_.strikes(Fault::kMiscDataRefused)) return *status;
    ++sequence_;
    data_.insert(data_.end(), payload.begin(), payload.end());
    status_.misc_data[header.type].done = data_.size();
    if (header.kind == misc::kLastData) awaited_ = Awaited::kCrc;
    return kTaken;
}

uint32_t MiscDataReceiver::crc(const misc::Header& header, uint32_t value) {
    const std::string error = awaited_error("CRC", Awaited::kCrc, header.type);
    if (!error.empty()) return breach(error);
    if (refused_) return kIncomplete;
    const uint32_t right = crc_of(data_);
    if (value != right) return breach(differs("CRC: value", hex(right), hex(value)));
    if (const auto status = faults_.strikes(Fault::kMiscCrcRefused)) return *status;
    memory_[header.type] = std::exchange(data_, {});
    awaited_ = Awaited::kStart;
    reporter_.emit(EventKind::kPhase,
                   {{"phase", "misc resource"}, {"type", header.type}, {"size", total_}});
    return kTaken;
}

uint32_t MiscDataReceiver::finish() {
    if (awaited_ != Awaited::kStart) {
        return breach(awaited_error("finish", Awaited::kStart, 0));
    }
    if (!type_) return breach("finish without a resource");
    if (refused_) return breach("finish although " + type_words(*type_) + " was refused");
    if (const auto status = faults_.strikes(Fault::kMiscFinishRefused)) return *status;
    awaited_ = Awaited::kNothing;
    reporter_.emit(EventKind::kPhase, {{"phase", "misc ends"}});
    return kTaken;
}

bool MiscDataReceiver::matches(const MiscFiles& files, std::string* why) const {
    for (uint32_t type = 0; type < misc::kTypes; ++type) {
        const auto file = files.find(type);
        const auto got = memory_.find(type);
        std::string error;
        if (file != files.end() && got == memory_.end()) error = "not received";
        if (file == files.end() && got != memory_.end()) error = "received, but there is no file";
        if (file != files.end() && got != memory_.end()) {
            error = difference(file->second, got->second);
        }
        if (error.empty()) continue;
        if (why) *why = "misc data, " + type_words(type) + ": " + error;
        return false;
    }
    return true;
}

}  // namespace sim
