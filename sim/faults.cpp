// SPDX-License-Identifier: Apache-2.0
#include "sim/faults.h"

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "sim/event.h"

namespace sim {

namespace {

constexpr FaultValue kErrorNumber = {"errno", 1, 133};

constexpr FaultValue kResponseCode = {"response code", 1, UINT32_MAX};
constexpr FaultValue kImageId = {"image id", 0, UINT32_MAX};
constexpr uint32_t kHour = 3'600'000;
constexpr FaultValue kUntilBack = {"ms until the channel is back", 0, kHour, true};
constexpr FaultValue kUntilPowerUp = {"ms until it is powered up", 0, kHour, true};
constexpr FaultValue kCommand = {"command", 514, UINT32_MAX};
constexpr FaultValue kMissingBytes = {"missing bytes", 1, UINT32_MAX};

constexpr FaultRow kTable[] = {
    {"load-fails", "a load fails, whatever the boot mode", "load", &kErrorNumber, EIO,
     Fault::kLoadFails},
    {"flash-load-fails", "a load in FLASH mode fails", "load in FLASH mode", &kErrorNumber, EIO,
     Fault::kFlashLoadFails},
    {"flash-firmware-damaged", "a load in FLASH mode fails until a download has finished",
     "load in FLASH mode before a download has finished", &kErrorNumber, EIO,
     Fault::kFlashFirmwareDamaged},
    {"version-query-fails", "a version query fails", "version query", &kErrorNumber, EIO,
     Fault::kVersionQueryFails},
    {"erase-fails", "an erase is answered with a failure, nothing is erased", "erase request",
     &kResponseCode, 1, Fault::kEraseFails},
    {"state-query-fails", "a state query is answered with a failure", "state query", &kResponseCode,
     1, Fault::kStateQueryFails},
    {"dfu-channel-missing", "the download channel cannot be opened", "opening of the channel",
     &kErrorNumber, ENODEV, Fault::kDfuChannelMissing},
    {"hang-up-at-packet", "the download channel hangs up and a packet of the host is lost",
     "packet", &kUntilBack, 0, Fault::kHangUpAtPacket},
    {"hang-up-at-info",
     "the download channel hangs up with a request for an image's size unanswered", "such request",
     &kUntilBack, 0, Fault::kHangUpAtInfo},
    {"hang-up-at-fragment",
     "the download channel hangs up with a request for a fragment unanswered", "such request",
     &kUntilBack, 0, Fault::kHangUpAtFragment},
    {"hang-up-at-session-end",
     "the download channel hangs up with the end of the session unanswered", "session end",
     &kUntilBack, 0, Fault::kHangUpAtSessionEnd},
    {"cancel", "the co-processor cancels instead of asking for a fragment",
     "request for a fragment", nullptr, 0, Fault::kCancel},
    {"unknown-image", "an image that there is none of is asked for first", "image that begins",
     &kImageId, 99, Fault::kUnknownImage},
    {"restart", "the co-processor restarts and a packet of the host is lost",
     "packet on any channel", &kUntilPowerUp, 100, Fault::kRestart},
    {"misc-start-refused", "the start of a misc data resource is refused", "start packet",
     &kResponseCode, 1, Fault::kMiscStartRefused},
    {"misc-data-refused", "a packet of misc data is refused", "data packet", &kResponseCode, 1,
     Fault::kMiscDataRefused},
    {"misc-crc-refused", "the CRC of a misc data resource is refused", "CRC packet", &kResponseCode,
     1, Fault::kMiscCrcRefused},
    {"misc-finish-refused", "the end of the misc data is refused", "finish packet", &kResponseCode,
     1, Fault::kMiscFinishRefused},
    {"misc-answer-missing", "a packet on the misc data channel is lost and not answered", "packet",
     nullptr, 0, Fault::kMiscAnswerMissing},
    {"rma-crc-wrong",
     "a remote memory request carries a wrong CRC; it is to be answered all the same", "request",
     nullptr, 0, Fault::kRmaCrcWrong},
    {"rma-unknown-command", "a remote memory command that there is none of comes before a request",
     "request", &kCommand, 1024, Fault::kRmaUnknownCommand},
    {"rma-block-outside",
     "the block of a remote write ends beyond the message; it is not to be written",
     "write request", &kMissingBytes, 1, Fault::kRmaBlockOutside},
};

const FaultRow& row_of(std::string_view name) {
    for (const FaultRow& row : kTable) {
        if (row.name == name) return row;
    }
    throw FaultError("no fault \"" + std::string(name) + "\"; --list-faults shows them");
}

// The part of `text` behind the first `mark`, which is cut off with it; none without one.
std::optional<std::string_view> cut(std::string_view& text, char mark) {
    const size_t at = text.find(mark);
    if (at == text.npos) return {};
    const std::string_view behind = text.substr(at + 1);
    text = text.substr(0, at);
    return behind;
}

uint32_t number(const FaultRow& row, const char* what, std::string_view text, uint32_t lowest,
                uint32_t highest, bool may_be_never) {
    uint32_t result = 0;
    const auto end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, result);
    if (error == std::errc() && stop == end && result >= lowest && result <= highest) return result;
    throw FaultError(std::string(row.name) + ": " + what + " must be a number from " +
                     std::to_string(lowest) + " to " + std::to_string(highest) +
                     (may_be_never ? " or never" : "") + ", not \"" + std::string(text) + "\"");
}

}  // namespace

std::span<const FaultRow> all_faults() {
    return kTable;
}

const FaultRow& row_of(Fault fault) {
    return *std::find_if(std::begin(kTable), std::end(kTable),
                         [fault](const FaultRow& row) { return row.fault == fault; });
}

FaultRequest parse_fault(const std::string& text) {
    std::string_view name = text;
    const auto value = cut(name, ':');
    const auto occasion = cut(name, '@');
    const FaultRow& row = row_of(name);
    FaultRequest request = {row.fault};
    if (occasion) request.occasion = number(row, "the occasion", *occasion, 1, UINT32_MAX, false);
    if (!value) return request;
    if (!row.value) {
        throw FaultError(std::string(row.name) + " takes no value, not \"" + std::string(*value) +
                         "\"");
    }
    const FaultValue& kind = *row.value;
    if (kind.may_be_never && *value == "never") {
        request.value = kNever;
    } else {
        request.value =
            number(row, kind.meaning, *value, kind.lowest, kind.highest, kind.may_be_never);
    }
    return request;
}

std::vector<FaultRequest> first_occasions(Fault fault, uint32_t count) {
    std::vector<FaultRequest> requests;
    for (uint32_t occasion = 1; occasion <= count; ++occasion) {
        requests.push_back({fault, occasion});
    }
    return requests;
}

std::optional<uint32_t> Faults::strikes(Fault fault) {
    const uint32_t occasion = ++occasions_[fault];
    for (size_t index = 0; index < requests_.size(); ++index) {
        const FaultRequest& request = requests_[index];
        if (request.fault != fault || request.occasion.value_or(occasion) != occasion) continue;
        struck_[index] = true;
        const FaultRow& row = row_of(fault);
        const uint32_t value = request.value.value_or(row.usual_value);
        nlohmann::json fields = {{"fault", row.name}, {"occasion", occasion}};
        if (row.value) {
            const bool never = row.value->may_be_never && value == kNever;
            fields["value"] = never ? "never" : std::to_string(value);
        }
        reporter_.emit(EventKind::kFault, std::move(fields));
        return value;
    }
    return {};
}

}  // namespace sim
