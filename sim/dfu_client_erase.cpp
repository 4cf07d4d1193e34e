// SPDX-License-Identifier: Apache-2.0
// The special operations: the erase of the partitions and the state query.
#include <algorithm>

#include "sim/dfu_client.h"
#include "sim/event.h"

namespace sim {

using dfu::hex;
using dfu::kHeaderSize;
using dfu::word_at;

namespace {

constexpr uint32_t kSuccess = 0;
constexpr uint32_t kNoSuchRange = 1;

std::string range_words(uint32_t start, uint32_t size) {
    return "offset " + hex(start) + " length " + hex(size);
}

}  // namespace

void DfuClient::special_request(std::span<const uint8_t> packet) {
    const uint32_t operation = word_at(packet, kHeaderSize);
    if (operation == dfu::kEraseOperation) {
        if (check_words(packet, 28, {operation})) {
            erase(word_at(packet, 20), word_at(packet, 24));
        }
    } else if (operation == dfu::kStateOperation) {
        if (check_words(packet, 28, {operation, 0, 0})) answer_state();
    } else {
        reporter_.fail("DFU_SPCL_OPERATION_REQ: operation expected 0 or 1, got " +
                       std::to_string(operation));
    }
}

// The ranges are asked for in the order of the table, each once.
bool DfuClient::erase_is_expected(uint32_t start, uint32_t size) {
    const auto& ranges = firmware_.erase_ranges;
    const std::string got = "erase of " + range_words(start, size);
    if (next_erase_ == ranges.size()) {
        reporter_.fail(got + ", but the table names no " + (ranges.empty() ? "" : "further ") +
                       "range to erase");
        return false;
    }
    const EraseRange& range = ranges[next_erase_];
    if (range.offset == start && range.size == size) return true;
    reporter_.fail(got + ": expected partition " + range.name + ", " +
                   range_words(range.offset, range.size));
    return false;
}

// The host erases from the first range on: what was under way is given up.
void DfuClient::begin_anew() {
    std::fill(range_requested_.begin(), range_requested_.end(), false);
    std::fill(range_refused_.begin(), range_refused_.end(), false);
    erases_lost_ = false;
    cancelled_ = false;
    outstanding_ = {0};
    status_.erase_done = 0;
    status_.phase = Phase::kErase;
    for (ImageProgress& image : status_.images) image.done = 0;
    reporter_.emit(EventKind::kPhase, {{"phase", "erase"}});
}

void DfuClient::erase(uint32_t start, uint32_t size) {
    init_reported_ = false;
    if (!erase_is_expected(start, size)) {
        send_message({dfu::kEraseOperation, kNoSuchRange, 0, 0, 0, 0, 0}, dfu::kSpecialResponse);
        return;
    }
    if (next_erase_ == 0) begin_anew();
    const auto failure = faults_.strikes(Fault::kEraseFails);
    range_requested_[next_erase_] = true;
    range_refused_[next_erase_] = failure.has_value();
    ++next_erase_;
    work(size, true, [this, start, size, failure] {
        if (!failure) flash_.erase(start, size);
        send_message({dfu::kEraseOperation, failure.value_or(kSuccess), 0, 0, 0, 0, 0},
                     dfu::kSpecialResponse);
    });
}

dfu::State DfuClient::state() const {
    if (cancelled_) return dfu::kCancelled;
    if (outstanding_.id == dfu::kInfoRequest) return dfu::kInfo;
    if (outstanding_.id == dfu::kOffsetRequest) return dfu::kOffset;
    if (outstanding_.id == dfu::kSessionEndRequest) return dfu::kSessionEnd;
    return dfu::kInit;
}

void DfuClient::answer_state() {
    if (const auto code = faults_.strikes(Fault::kStateQueryFails)) {
        reporter_.emit(EventKind::kPhase, {{"phase", "state"}, {"state", "refused"}});
        return send_message({dfu::kStateOperation, *code, 0, 0, 0, 0, 0}, dfu::kSpecialResponse);
    }
    const dfu::State now = state();
    init_reported_ = now == dfu::kInit;
    reporter_.emit(EventKind::kPhase, {{"phase", "state"}, {"state", dfu::state_name(now)}});
    send_message({dfu::kStateOperation, kSuccess, 0, now, outstanding_.image, outstanding_.offset,
                  outstanding_.length},
                 dfu::kSpecialResponse);
}

}  // namespace sim
