// SPDX-License-Identifier: Apache-2.0
#include "sweep/operation.h"

#include <cstring>

namespace sweep {
namespace {

void put(std::string& out, int64_t number) {
    char bytes[sizeof number];
    std::memcpy(bytes, &number, sizeof number);
    out.append(bytes, sizeof bytes);
}

void put(std::string& out, const std::string& text) {
    put(out, static_cast<int64_t>(text.size()));
    out += text;
}

int64_t take_number(const std::string& in, size_t& at) {
    int64_t number = 0;
    std::memcpy(&number, in.data() + at, sizeof number);
    at += sizeof number;
    return number;
}

std::string take_text(const std::string& in, size_t& at) {
    const auto size = static_cast<size_t>(take_number(in, at));
    at += size;
    return in.substr(at - size, size);
}

}  // namespace

std::string packed(const Trace& trace) {
    std::string out;
    for (const Operation& operation : trace) {
        put(out, int64_t{operation.kind});
        put(out, operation.first);
        put(out, operation.second);
        put(out, operation.third);
        put(out, operation.text);
        put(out, operation.other);
    }
    return out;
}

Trace unpacked(const std::string& bytes) {
    Trace trace;
    for (size_t at = 0; at < bytes.size();) {
        Operation operation{static_cast<Operation::Kind>(take_number(bytes, at))};
        operation.first = take_number(bytes, at);
        operation.second = take_number(bytes, at);
        operation.third = take_number(bytes, at);
        operation.text = take_text(bytes, at);
        operation.other = take_text(bytes, at);
        trace.push_back(std::move(operation));
    }
    return trace;
}

}  // namespace sweep
