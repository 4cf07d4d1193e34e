// SPDX-License-Identifier: Apache-2.0
#include "sweep/fault.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <charconv>

namespace sweep {
namespace {

constexpr uint32_t kForGood = UINT32_MAX;

constexpr Fault fails(std::string_view name, int error, uint32_t times = 1) {
    return {name, Effect::kFails, error, times};
}
constexpr Fault disturbs(std::string_view name, Disturbance kind, int64_t value = 0) {
    return {name, Effect::kDisturbs, value, 1, kind};
}
constexpr Fault length(std::string_view name, int64_t value) {
    return disturbs(name, Disturbance::kLength, value);
}

// The limits: 15 tries at the control device, 3 at a channel, 3 at a read, 100 at a write.
constexpr Fault kIoctlFaults[] = {fails("EIO", EIO),
                                  fails("EBUSY", EBUSY),
                                  fails("EINTR", EINTR),
                                  fails("ENOMEM", ENOMEM),
                                  {"gives-7", Effect::kGives, 7}};
constexpr Fault kOpenControlFaults[] = {
    fails("EBUSY", EBUSY),   fails("EBUSYx14", EBUSY, 14), fails("EBUSYx15", EBUSY, 15),
    fails("ENOENT", ENOENT), fails("EINTR", EINTR),        fails("ENOMEM", ENOMEM),
    fails("EIO", EIO)};
constexpr Fault kOpenChannelFaults[] = {fails("EBUSY", EBUSY),        fails("EBUSYx2", EBUSY, 2),
                                        fails("EBUSYx3", EBUSY, 3),   fails("ENOENT", ENOENT),
                                        fails("ENOENTx3", ENOENT, 3), fails("EINTR", EINTR),
                                        fails("ENOMEMx3", ENOMEM, 3), fails("EIOx3", EIO, 3)};
constexpr Fault kOpenFileFaults[] = {fails("EBUSY", EBUSY), fails("ENOENT", ENOENT),
                                     fails("EINTR", EINTR), fails("EIO", EIO),
                                     fails("ENOMEM", ENOMEM)};
constexpr Fault kReadChannelFaults[] = {fails("EAGAIN", EAGAIN),
                                        fails("EAGAINx2", EAGAIN, 2),
                                        fails("EAGAINx3", EAGAIN, 3),
                                        fails("EINTR", EINTR),
                                        fails("EIO", EIO),
                                        fails("ENOMEM", ENOMEM),
                                        {"nothing", Effect::kGives, 0},
                                        {"nothing-for-good", Effect::kGives, 0, kForGood},
                                        {"1-byte", Effect::kShortens, 1},
                                        {"16-bytes", Effect::kShortens, 16}};
constexpr Fault kReadFileFaults[] = {fails("EIO", EIO),
                                     fails("EINTR", EINTR),
                                     fails("ENOMEM", ENOMEM),
                                     {"1-byte", Effect::kShortens, 1},
                                     {"nothing", Effect::kGives, 0}};
constexpr Fault kWriteChannelFaults[] = {fails("EAGAIN", EAGAIN),
                                         fails("EAGAINx99", EAGAIN, 99),
                                         fails("EAGAINx100", EAGAIN, 100),
                                         fails("EBUSYx99", EBUSY, 99),
                                         fails("EBUSYx100", EBUSY, 100),
                                         fails("EINTR", EINTR),
                                         fails("EIO", EIO),
                                         fails("ENOMEM", ENOMEM),
                                         {"lost", Effect::kLoses}};
constexpr Fault kWriteFileFaults[] = {
    fails("ENOSPC", ENOSPC), fails("ENOMEM", ENOMEM),          fails("EIO", EIO),
    fails("EINTR", EINTR),   {"1-byte", Effect::kShortens, 1}, {"nothing", Effect::kGives, 0}};
constexpr Fault kWakeFaults[] = {fails("EIO", EIO), fails("EINTR", EINTR), fails("ENOMEM", ENOMEM)};
constexpr Fault kSyncFaults[] = {fails("EIO", EIO), fails("ENOSPC", ENOSPC), fails("EINTR", EINTR),
                                 fails("ENOMEM", ENOMEM)};
constexpr Fault kNameFaults[] = {fails("EIO", EIO), fails("ENOSPC", ENOSPC),
                                 fails("ENOMEM", ENOMEM)};
constexpr Fault kListFaults[] = {fails("ENOENT", ENOENT), fails("ENOMEM", ENOMEM)};
constexpr Fault kPollFaults[] = {fails("EINTR", EINTR),
                                 fails("ENOMEM", ENOMEM),
                                 {"POLLERR", Effect::kEvents, POLLERR},
                                 {"POLLERR-for-good", Effect::kEvents, POLLERR, kForGood}};
constexpr Fault kResourceFaults[] = {fails("EMFILE", EMFILE), fails("EAGAIN", EAGAIN),
                                     fails("ENOMEM", ENOMEM)};
constexpr Fault kPropertyFaults[] = {fails("refused", EACCES)};
constexpr Fault kCommonPacketFaults[] = {disturbs("duplicated", Disturbance::kDuplicated),
                                         disturbs("late", Disturbance::kLate),
                                         disturbs("dropped", Disturbance::kDropped)};
constexpr Fault kMessageFaults[] = {length("length-0", 0),
                                    length("length-16", 16),
                                    length("length-44", 44),
                                    length("length-45", 45),
                                    length("length-4096", 4096),
                                    length("length-2^31", 0x80000000),
                                    length("length-2^32-1", UINT32_MAX),
                                    disturbs("padded-44", Disturbance::kPadded, 44),
                                    disturbs("padded-45", Disturbance::kPadded, 45),
                                    disturbs("padded-4096", Disturbance::kPadded, 4096),
                                    disturbs("crc", Disturbance::kCrc, 0x12345678),
                                    disturbs("command", Disturbance::kCommand, 0x7777)};
constexpr Fault kMagicFault[] = {disturbs("magic", Disturbance::kMagic, 0)};
constexpr Fault kUeventFaults[] = {{"foreign-before", Effect::kAnnounces, 0},
                                   {"garbage-before", Effect::kAnnounces, 1},
                                   {"twice", Effect::kAnnounces, 2}};
// Whatever the daemon is at.
constexpr Fault kAnywhere[] = {{"hang-up", Effect::kHangsUp, 0},
                               {"hang-up-2s", Effect::kHangsUp, 2'000},
                               {"hang-up-for-good", Effect::kHangsUp, -1},
                               {"restart", Effect::kRestarts, 300},
                               {"kill", Effect::kKills}};

// What may happen at an occasion: a row each, in their order.
struct Row {
    const char* name;
    bool anywhere;  // kAnywhere as well
    std::vector<std::span<const Fault>> faults;
};
const Row kRows[] = {{"ioctl", true, {kIoctlFaults}},
                     {"open-control", true, {kOpenControlFaults}},
                     {"open-channel", true, {kOpenChannelFaults}},
                     {"open-file", false, {kOpenFileFaults}},
                     {"read-channel", true, {kReadChannelFaults}},
                     {"read-file", false, {kReadFileFaults}},
                     {"write-channel", true, {kWriteChannelFaults}},
                     {"write-file", true, {kWriteFileFaults}},
                     {"wake", false, {kWakeFaults}},
                     {"sync", true, {kSyncFaults}},
                     {"rename", true, {kNameFaults}},
                     {"unlink", false, {kNameFaults}},
                     {"stat", false, {kNameFaults}},
                     {"list", false, {kListFaults}},
                     {"poll", false, {kPollFaults}},
                     {"pipe", false, {kResourceFaults}},
                     {"thread", false, {kResourceFaults}},
                     {"property", true, {kPropertyFaults}},
                     {"memory", false, {kResourceFaults}},
                     {"download-packet", false, {kMessageFaults, kMagicFault, kCommonPacketFaults}},
                     {"misc-packet", false, {kCommonPacketFaults}},
                     {"memory-packet", false, {kMessageFaults, kCommonPacketFaults}},
                     {"uevent", true, {kUeventFaults}}};
static_assert(std::size(kRows) == static_cast<size_t>(Occasion::kUevent) + 1);

const Row& row_of(Occasion kind) {
    return kRows[static_cast<size_t>(kind)];
}

}  // namespace

const char* occasion_name(Occasion kind) {
    return row_of(kind).name;
}

Occasion occasion_named(const std::string& name) {
    const auto found = std::find_if(std::begin(kRows), std::end(kRows),
                                    [&](const Row& row) { return row.name == name; });
    if (found == std::end(kRows)) throw PlanError("no occasion \"" + name + "\"");
    return static_cast<Occasion>(found - std::begin(kRows));
}

std::vector<Occasion> all_occasions() {
    std::vector<Occasion> occasions;
    for (size_t i = 0; i < std::size(kRows); ++i) occasions.push_back(static_cast<Occasion>(i));
    return occasions;
}

std::vector<Fault> faults_for(Occasion kind) {
    const Row& row = row_of(kind);
    std::vector<Fault> faults;
    for (const auto& part : row.faults) faults.insert(faults.end(), part.begin(), part.end());
    if (row.anywhere) {
        faults.insert(faults.end(), std::begin(kAnywhere), std::end(kAnywhere));
    }
    return faults;
}

std::string text_of(const Plan& plan) {
    return std::string(occasion_name(plan.occasion)) + "@" + std::to_string(plan.number) + "=" +
           std::string(plan.fault.name);
}

Plan parse_plan(const std::string& text) {
    const size_t at = text.find('@');
    const size_t equals = text.find('=', std::min(at, text.size()));
    if (at == text.npos || equals == text.npos) {
        throw PlanError("\"" + text + "\" is not of the form OCCASION@NUMBER=FAULT");
    }
    const Occasion kind = occasion_named(text.substr(0, at));
    uint32_t number = 0;
    const char* const end = text.data() + equals;
    const auto [stop, error] = std::from_chars(text.data() + at + 1, end, number);
    if (error != std::errc() || stop != end || number == 0) {
        throw PlanError("\"" + text.substr(at + 1, equals - at - 1) + "\" is no occasion's number");
    }
    for (const Fault& fault : faults_for(kind)) {
        if (fault.name == text.substr(equals + 1)) return {kind, number, fault};
    }
    throw PlanError("no fault \"" + text.substr(equals + 1) + "\" on the occasion " +
                    occasion_name(kind));
}

std::optional<Fault> Occasions::strikes(Occasion kind, const std::string& detail) {
    const uint32_t number = ++counts_[kind];
    if (!plan_ || plan_->occasion != kind) return {};
    if (repetitions_left_ > 0 && detail == struck_at_) {
        --repetitions_left_;
        return plan_->fault;
    }
    if (number != plan_->number) return {};
    struck_at_ = detail;
    repetitions_left_ = plan_->fault.times - 1;
    return plan_->fault;
}

}  // namespace sweep
