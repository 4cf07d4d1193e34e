// SPDX-License-Identifier: Apache-2.0
// What a report keeps of a run of any length.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "sim/observer.h"

namespace sim {

// The first and the last items of a sequence.
template <typename Item>
class FirstAndLast {
  public:
    FirstAndLast(size_t first, size_t last) : most_first_(first), most_last_(last) {}

    void add(Item item) {
        if (first_.size() < most_first_) return first_.push_back(std::move(item));
        last_.push_back(std::move(item));
        if (last_.size() <= most_last_) return;
        last_.pop_front();
        ++left_out_;
    }

    const std::vector<Item>& first() const { return first_; }
    const std::deque<Item>& last() const { return last_; }
    uint64_t left_out() const { return left_out_; }  // between them

  private:
    size_t most_first_;
    size_t most_last_;
    std::vector<Item> first_;
    std::deque<Item> last_;
    uint64_t left_out_ = 0;
};

struct Span {
    Time begin;
    Time end;
    std::string text;
    bool finished = true;
    uint64_t count = 1;  // so many, joined into one
    Time filled{0};      // of which they take up so much
};

// Spans in order. Of too many, those that lie closest together are joined.
class SpanList {
  public:
    explicit SpanList(size_t most) : most_(most) {}
    void add(Span span);
    const std::vector<Span>& spans() const { return spans_; }

  private:
    void join_closer_than(Time gap);

    size_t most_;
    Time gap_ = std::chrono::microseconds(1);
    std::vector<Span> spans_;
};

// Packets and bytes over time, in buckets of the same width; those in which nothing happened are
// not there. Of too many, two by two become one.
class RateBuckets {
  public:
    explicit RateBuckets(size_t most) : most_(most) {}

    struct Bucket {
        uint64_t bytes = 0;
        uint64_t packets = 0;
    };
    void add(Time time, uint64_t bytes);
    Time width() const { return width_; }
    const std::map<int64_t, Bucket>& buckets() const { return buckets_; }  // by time / width

  private:
    size_t most_;
    Time width_ = std::chrono::microseconds(50);
    std::map<int64_t, Bucket> buckets_;
};

}  // namespace sim
