// SPDX-License-Identifier: Apache-2.0
#include "sim/report/bounded.h"

namespace sim {

void SpanList::add(Span span) {
    span.filled = span.end - span.begin;
    spans_.push_back(std::move(span));
    // Half of them then, so that joining is rare.
    if (spans_.size() <= most_) return;
    for (join_closer_than(gap_); spans_.size() > most_ / 2; join_closer_than(gap_)) gap_ *= 2;
}

void SpanList::join_closer_than(Time gap) {
    std::vector<Span> joined;
    for (Span& span : spans_) {
        if (joined.empty() || span.begin - joined.back().end >= gap) {
            joined.push_back(std::move(span));
            continue;
        }
        Span& before = joined.back();
        before.end = span.end;
        if (before.text != span.text) before.text = "several";
        before.finished = before.finished && span.finished;
        before.count += span.count;
        before.filled += span.filled;
    }
    spans_ = std::move(joined);
}

void RateBuckets::add(Time time, uint64_t bytes) {
    Bucket& bucket = buckets_[time / width_];
    bucket.bytes += bytes;
    ++bucket.packets;
    while (buckets_.size() > most_) {
        width_ *= 2;
        std::map<int64_t, Bucket> wider;
        for (const auto& [index, narrow] : std::exchange(buckets_, {})) {
            wider[index / 2].bytes += narrow.bytes;
            wider[index / 2].packets += narrow.packets;
        }
        buckets_ = std::move(wider);
    }
}

}  // namespace sim
