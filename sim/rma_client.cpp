// SPDX-License-Identifier: Apache-2.0
#include "sim/rma_client.h"

#include <algorithm>
#include <utility>

#include "sim/event.h"
#include "sim/rma_packet.h"

namespace sim {

using rma::command_name;

namespace {

// Words that the host does not read; not 0, so that one which reads the wrong word is found out.
constexpr uint32_t kUnread = 0xEEEEEEEE;

constexpr uint32_t kWritten = 0;
constexpr uint32_t kNotWritten = 1;

std::string file_name(const RmaPartition& partition) {
    const std::string memory_id = std::to_string(partition.memory_id);
    return memory_id + std::to_string(partition.second_id) + memory_id;
}

uint64_t bytes_of(const RmaStep& step) {
    return step.kind == RmaStep::kWrite ? step.data.size() : step.size;
}

uint32_t command_for(RmaStep::Kind kind) {
    switch (kind) {
        case RmaStep::kConnect:
            return rma::kConnect;
        case RmaStep::kDisconnect:
            return rma::kDisconnect;
        case RmaStep::kRead:
            return rma::kDataRead;
        case RmaStep::kWrite:
            return rma::kDataWrite;
    }
    return 0;
}

}  // namespace

RmaClient::RmaClient(const Behaviour& behaviour, Faults& faults, Reporter& reporter, Status& status)
    : PacketChannel("rma", reporter),
      faults_(faults),
      status_(status),
      program_(rma_program(behaviour.rma)),
      goes_on_(behaviour.rma_goes_on),
      memory_(program_.partitions.size()) {}

void RmaClient::on_open() {
    if (begun_) {
        resume();
    } else {
        begun_ = true;
        for (const RmaStep& step : program_.steps) status_.memory_total += bytes_of(step);
        reporter_.emit(EventKind::kPhase, {{"phase", "rma begins"}});
    }
    ask_next();
}

void RmaClient::resume() {
    const auto lost = std::exchange(outstanding_, std::nullopt);
    if (lost && lost->purpose == Purpose::kProgram && lost->command == rma::kDataWrite) {
        write_lost_ = true;
    }
    connected_.reset();
    read_back_.clear();
    for (size_t i = 0; i < memory_.size(); ++i) {
        if (!memory_[i]) continue;
        const auto reads = read_all(program_, i);
        read_back_.insert(read_back_.end(), reads.begin(), reads.end());
    }
}

void RmaClient::ask_next() {
    const bool ended = next_ == program_.steps.size();
    const bool read_back = !write_lost_ && !read_back_.empty();
    if (ended && !(read_back && goes_on_)) return;
    const RmaStep& step = read_back ? read_back_.front() : program_.steps[next_];
    const bool needs_connection = step.kind == RmaStep::kRead || step.kind == RmaStep::kWrite;
    if (needs_connection && connected_ != step.partition) {
        ask({RmaStep::kConnect, step.partition}, Purpose::kConnectFirst);
    } else {
        ask(step, read_back ? Purpose::kReadBack : Purpose::kProgram);
    }
}

void RmaClient::ask(const RmaStep& step, Purpose purpose) {
    const RmaPartition& partition = program_.partitions[step.partition];
    Request request = {command_for(step.kind), purpose, step, 0, false};
    if (step.kind == RmaStep::kConnect) {
        ++client_word_;
        last_memory_id_ = partition.memory_id;
        if (!memory_[step.partition]) memory_[step.partition] = Bytes(partition.size);
    }
    if (step.kind == RmaStep::kRead) request.word = ++read_word_;
    if (step.kind == RmaStep::kWrite) {
        request.word = partition.memory_id + (step.other_word ? 1 : 0);
    }
    Bytes message = message_for(request);
    if (step.kind == RmaStep::kWrite) {
        if (const auto missing = faults_.strikes(Fault::kRmaBlockOutside)) {
            request.block_outside = true;
            rma::cut_block(message, *missing);
        }
    }
    if (const auto command = faults_.strikes(Fault::kRmaUnknownCommand)) {
        send_message(rma::make_message(*command, {}));
    }
    if (faults_.strikes(Fault::kRmaCrcWrong)) rma::spoil_crc(message);
    outstanding_ = std::move(request);
    send_message(std::move(message),
                 purpose == Purpose::kProgram ? std::optional(next_) : std::nullopt);
}

Bytes RmaClient::message_for(const Request& request) const {
    const RmaStep& step = request.step;
    const RmaPartition& partition = program_.partitions[step.partition];
    const uint32_t id = partition.memory_id;
    switch (step.kind) {
        case RmaStep::kConnect:
            return rma::make_message(
                rma::kConnect,
                {kUnread, id, partition.second_id, partition.size, kUnread, kUnread, client_word_});
        case RmaStep::kDisconnect:
            return rma::make_message(rma::kDisconnect, {kUnread, id});
        case RmaStep::kRead:
            return rma::make_message(rma::kDataRead,
                                     {request.word, id, step.offset, step.size, kUnread});
        case RmaStep::kWrite:
            return rma::make_message(
                rma::kDataWrite,
                {request.word, id, step.offset, static_cast<uint32_t>(step.data.size()), kUnread},
                step.data);
    }
    return {};
}

void RmaClient::send_message(Bytes message, std::optional<size_t> step) {
    nlohmann::json description = rma::describe(message);
    if (step) description["step"] = *step;
    send(std::move(message), std::move(description));
}

void RmaClient::receive(std::span<const uint8_t> packet) {
    emit_received(rma::describe(packet));
    const std::string error = rma::header_error(packet);
    if (!error.empty()) {
        reporter_.fail(error);
        return;
    }
    const uint32_t command = rma::command_of(packet);
    if (!outstanding_ || readable()) {
        reporter_.fail(command_name(command) + (readable() ? " before the request was read"
                                                           : " while no request is outstanding"));
        return;
    }
    if (command != outstanding_->command + 1) {
        reporter_.fail(command_name(command) + " while " + command_name(outstanding_->command) +
                       " is outstanding");
        return;
    }
    if (check_answer(*outstanding_, packet)) answered();
}

bool RmaClient::check_words(std::span<const uint8_t> answer, size_t length,
                            std::initializer_list<uint32_t> words) {
    const std::string name = command_name(rma::command_of(answer));
    if (answer.size() != length) {
        reporter_.fail(differs(name + ": length", length, answer.size()));
        return false;
    }
    size_t at = rma::kHeaderSize;
    for (const uint32_t word : words) {
        const uint32_t got = word_at(answer, at);
        if (got != word) {
            const std::string field = name + ": word at " + std::to_string(at);
            reporter_.fail(differs(field, hex(word), hex(got)));
            return false;
        }
        at += 4;
    }
    return true;
}

bool RmaClient::check_answer(const Request& request, std::span<const uint8_t> answer) {
    const RmaStep& step = request.step;
    const uint32_t id = program_.partitions[step.partition].memory_id;
    switch (step.kind) {
        case RmaStep::kConnect:
            return check_words(answer, 36, {client_word_, 0, id, 3, 4096, 4096});
        case RmaStep::kDisconnect:
            return check_words(answer, 28, {last_memory_id_, client_word_, id, 0});
        case RmaStep::kRead:
            return check_words(answer, rma::kBlockAt + size_t{step.size},
                               {request.word, client_word_, id, step.size, 0}) &&
                   check_data(step, answer.subspan(rma::kBlockAt));
        case RmaStep::kWrite:
            return check_words(answer, rma::kBlockAt,
                               {request.word, client_word_, id,
                                static_cast<uint32_t>(step.data.size()), write_result(request)});
    }
    return false;
}

bool RmaClient::check_data(const RmaStep& step, std::span<const uint8_t> data) {
    const std::string error = difference(contents(step), data);
    if (error.empty()) return true;
    reporter_.fail("partition " + file_name(program_.partitions[step.partition]) + ", read of " +
                   std::to_string(step.size) + " bytes at " + std::to_string(step.offset) + ": " +
                   error);
    return false;
}

uint32_t RmaClient::write_result(const Request& request) const {
    const RmaStep& step = request.step;
    const size_t size = program_.partitions[step.partition].size;
    const bool inside = step.offset <= size && step.data.size() <= size - step.offset;
    return inside && !step.other_word && !request.block_outside ? kWritten : kNotWritten;
}

// What a read must bring: zeros beyond the end of the partition.
Bytes RmaClient::contents(const RmaStep& read) const {
    const Bytes& memory = *memory_[read.partition];
    const size_t begin = std::min<size_t>(read.offset, memory.size());
    const auto from = std::span(memory).subspan(begin);
    const auto piece = from.first(std::min<size_t>(read.size, from.size()));
    Bytes bytes(piece.begin(), piece.end());
    bytes.resize(read.size);
    return bytes;
}

void RmaClient::answered() {
    const Request request = *std::exchange(outstanding_, std::nullopt);
    const RmaStep& step = request.step;
    if (step.kind == RmaStep::kConnect) {
        connected_ = step.partition;
        acknowledged_.insert(file_name(program_.partitions[step.partition]));
    }
    if (step.kind == RmaStep::kDisconnect && connected_ == step.partition) connected_.reset();
    if (step.kind == RmaStep::kWrite && write_result(request) == kWritten) {
        Bytes& memory = *memory_[step.partition];
        std::copy(step.data.begin(), step.data.end(), memory.begin() + step.offset);
    }
    if (request.purpose == Purpose::kReadBack) read_back_.pop_front();
    if (request.purpose == Purpose::kProgram) step_done();
    ask_next();
}

void RmaClient::step_done() {
    write_lost_ = false;
    status_.memory_done += bytes_of(program_.steps[next_]);
    ++next_;
    const size_t count = program_.steps.size();
    if (next_ == count / 2) reporter_.emit(EventKind::kPhase, {{"phase", "rma half"}});
    if (next_ == count) reporter_.emit(EventKind::kPhase, {{"phase", "rma ends"}});
}

BackingFiles RmaClient::backing_files(bool with_unanswered) const {
    BackingFiles files;
    for (size_t i = 0; i < memory_.size(); ++i) {
        if (memory_[i]) files[file_name(program_.partitions[i])] = *memory_[i];
    }
    if (!with_unanswered || next_ == program_.steps.size()) return files;
    const RmaStep& step = program_.steps[next_];
    const Request write = {rma::kDataWrite, Purpose::kProgram, step, 0, false};
    if (step.kind == RmaStep::kWrite && memory_[step.partition] &&
        write_result(write) == kWritten) {
        Bytes& file = files.at(file_name(program_.partitions[step.partition]));
        std::copy(step.data.begin(), step.data.end(), file.begin() + step.offset);
    }
    return files;
}

}  // namespace sim
