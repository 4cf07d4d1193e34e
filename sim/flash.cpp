// SPDX-License-Identifier: Apache-2.0
#include "sim/flash.h"

#include <algorithm>
#include <iterator>

namespace sim {

namespace {

// Takes [start, end) out of a set of ranges.
void cut_out(std::map<uint64_t, uint64_t>& ranges, uint64_t start, uint64_t end) {
    auto range = ranges.upper_bound(start);
    if (range != ranges.begin()) --range;
    while (range != ranges.end() && range->first < end) {
        const auto [range_start, range_end] = *range;
        if (range_end <= start) {
            ++range;
            continue;
        }
        range = ranges.erase(range);
        if (range_start < start) ranges.emplace(range_start, start);
        if (range_end > end) ranges.emplace(end, range_end);
    }
}

}  // namespace

// Drops the written bytes of [start, end).
void Flash::forget(uint64_t start, uint64_t end) {
    auto piece = written_.upper_bound(start);
    if (piece != written_.begin()) --piece;
    while (piece != written_.end() && piece->first < end) {
        const uint64_t piece_start = piece->first;
        const uint64_t piece_end = piece_start + piece->second.size();
        if (piece_end <= start) {
            ++piece;
            continue;
        }
        std::vector<uint8_t> bytes = std::move(piece->second);
        piece = written_.erase(piece);
        if (piece_end > end) {
            const auto tail = bytes.end() - static_cast<std::ptrdiff_t>(piece_end - end);
            written_[end] = std::vector<uint8_t>(tail, bytes.end());
        }
        if (piece_start < start) {
            bytes.resize(static_cast<size_t>(start - piece_start));
            written_[piece_start] = std::move(bytes);
        }
    }
}

void Flash::erase(uint64_t start, uint64_t size) {
    if (size == 0) return;
    uint64_t end = start + size;
    forget(start, end);
    cut_out(erased_, start, end);
    auto after = erased_.find(end);
    if (after != erased_.end()) {
        end = after->second;
        erased_.erase(after);
    }
    auto before = erased_.lower_bound(start);
    if (before != erased_.begin() && std::prev(before)->second == start) {
        std::prev(before)->second = end;
    } else {
        erased_[start] = end;
    }
}

bool Flash::erased(uint64_t start, uint64_t size) const {
    if (size == 0) return true;
    auto range = erased_.upper_bound(start);
    if (range == erased_.begin()) return false;
    --range;
    return start < range->second && size <= range->second - start;
}

bool Flash::write(uint64_t start, std::span<const uint8_t> data) {
    if (data.empty()) return true;
    if (!erased(start, data.size())) return false;
    cut_out(erased_, start, start + data.size());
    auto piece = written_.upper_bound(start);
    if (piece != written_.begin()) {
        --piece;
        if (piece->first + piece->second.size() == start) {
            piece->second.insert(piece->second.end(), data.begin(), data.end());
            return true;
        }
    }
    written_[start] = std::vector<uint8_t>(data.begin(), data.end());
    return true;
}

bool Flash::matches(uint64_t start, std::span<const uint8_t> expected, std::string* why) const {
    size_t done = 0;
    while (done < expected.size()) {
        const uint64_t at = start + done;
        auto piece = written_.upper_bound(at);
        const bool found = piece != written_.begin() &&
                           at - std::prev(piece)->first < std::prev(piece)->second.size();
        if (!found) {
            if (why) *why = "byte " + std::to_string(done) + " was never written";
            return false;
        }
        --piece;
        const auto from = piece->second.begin() + static_cast<std::ptrdiff_t>(at - piece->first);
        const size_t length =
            std::min(expected.size() - done, static_cast<size_t>(piece->second.end() - from));
        const auto wanted = expected.begin() + static_cast<std::ptrdiff_t>(done);
        const auto difference =
            std::mismatch(wanted, wanted + static_cast<std::ptrdiff_t>(length), from);
        if (difference.first != wanted + static_cast<std::ptrdiff_t>(length)) {
            const auto offset = difference.first - expected.begin();
            if (why) {
                *why = "byte " + std::to_string(offset) + " is " +
                       std::to_string(*difference.second) + ", not " +
                       std::to_string(*difference.first);
            }
            return false;
        }
        done += length;
    }
    return true;
}

}  // namespace sim
