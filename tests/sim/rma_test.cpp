// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <tuple>

#include "tests/sim/scripted_host.h"

namespace sim::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr auto kRma = Channel::kRma;

void seal_answer(Bytes& bytes) {
    put(bytes, 4, static_cast<uint32_t>(bytes.size()));
    put(bytes, 0, crc(std::span(bytes).subspan(4)));
}

Bytes sealed(Bytes bytes) {
    seal_answer(bytes);
    return bytes;
}

Bytes answer(uint32_t command, const std::vector<uint32_t>& payload) {
    Bytes bytes = words({0, 0, command});
    const Bytes rest = words(payload);
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return sealed(bytes);
}

// A host that serves the memory as it must be served, except for what it overlooks and for what
// `tamper` does to its answers.
class RmaHost {
  public:
    explicit RmaHost(RmaLength length = RmaLength::kShort,
                     const std::vector<std::string>& faults = {})
        : host([&] {
              Behaviour behaviour = running(kHostMode, faults);
              behaviour.rma = length;
              return behaviour;
          }()) {
        host.take_wakelock();
        open();
    }

    Host host;
    BackingFiles files;
    std::string overlooked;  // the reason that does not keep it from confirming a write
    Tamper tamper;
    std::vector<Bytes> requests;

    void open() { ASSERT_EQ(host.model.open_channel(kRma), 0); }

    // Serves until nothing more comes, or `limit` requests.
    void serve(size_t limit = SIZE_MAX) {
        for (; limit > 0 && host.model.readable(kRma); --limit) {
            Bytes bytes = handle(host.model.take_packet(kRma));
            if (bytes.empty()) continue;
            if (tamper) tamper(bytes);
            host.model.receive(kRma, bytes);
        }
    }

    // What the host does with a request; empty: no answer.
    Bytes handle(const Bytes& request) {
        requests.push_back(request);
        const auto at = [&](size_t place) { return word(request, place); };
        switch (at(8)) {
            case 0:
                EXPECT_EQ(request.size(), 40u);
                memory_id_ = at(16), second_id_ = at(20), client_ = at(36);
                connect(at(24));
                return answer(1, {client_, 0, memory_id_, 3, 4096, 4096});
            case 2:
                return answer(3, {memory_id_, client_, at(16), 0});
            case 256: {
                Bytes bytes = answer(257, {at(12), client_, at(16), at(24), 0});
                const Bytes data = read(at(20), at(24));
                bytes.insert(bytes.end(), data.begin(), data.end());
                return sealed(bytes);
            }
            case 512:
                return answer(513, {at(12), client_, at(16), at(24), write(request) ? 0u : 1u});
            default:
                return {};
        }
    }

    // The channel is lost and comes back.
    void restart() {
        host.reset();
        EXPECT_TRUE(host.model.hung_up(kRma));
        EXPECT_FALSE(host.model.readable(kRma));
        host.model.close_channel(kRma);
        open();
    }

    bool ended() const {
        const auto phases = host.phases();
        return !phases.empty() && phases.back() == "rma ends";
    }

    // The whole program was served, and the files are what the model wrote.
    void expect_success(const std::string& when) const {
        ASSERT_EQ(host.first_failure(), "") << when;
        ASSERT_THAT(host.phases(), ElementsAre("rma begins", "rma half", "rma ends")) << when;
        ASSERT_EQ(files, host.model.backing_files()) << when;
    }

    // Why a write must not be made; "" if it must.
    std::string refusal(const Bytes& request) const {
        const auto file = files.find(name(word(request, 12)));
        const uint32_t size = word(request, 24);
        const uint64_t end = uint64_t{word(request, 20)} + size;
        if (file == files.end()) return "no such partition";
        if (request.size() < 32 + size) return "block is cut";
        if (end > UINT32_MAX) return "end wraps";
        return end > file->second.size() ? "beyond the end" : "";
    }

  private:
    std::string name(uint32_t last) const {
        return std::to_string(memory_id_) + std::to_string(second_id_) + std::to_string(last);
    }

    void connect(uint32_t size) { files.try_emplace(name(memory_id_), Bytes(size)); }

    Bytes read(uint32_t offset, uint32_t size) const {
        const Bytes& file = files.at(name(memory_id_));
        Bytes data;
        for (size_t i = offset; i < size_t{offset} + size; ++i) {
            data.push_back(i < file.size() ? file[i] : 0);
        }
        return data;
    }

    bool write(const Bytes& request) {
        const std::string why_not = refusal(request);
        if (!why_not.empty()) return why_not == overlooked;
        std::copy(request.begin() + 32, request.end(),
                  files.at(name(memory_id_)).begin() + word(request, 20));
        return true;
    }

    uint32_t memory_id_ = 0;
    uint32_t second_id_ = 0;
    uint32_t client_ = 0;
};

TEST(Rma, RequestsAreSealedAndSpeakOfWhatTheHostReads) {
    RmaHost rma;
    rma.serve();
    rma.expect_success("");
    EXPECT_EQ(rma.files.count("4294967280714294967280"), 1u);
    EXPECT_EQ(
        rma.requests.front(),
        sealed(words({0, 0, 0, 0xEEEEEEEE, 101, 70, 10000, 0xEEEEEEEE, 0xEEEEEEEE, 0xC1000001})));
    // What comes after the end finds nothing to do.
    rma.restart();
    EXPECT_FALSE(rma.host.model.readable(kRma));
    std::optional<uint32_t> connected;
    for (const Bytes& request : rma.requests) {
        EXPECT_EQ(sealed(request), request);
        const uint32_t command = word(request, 8);
        const uint32_t memory_id = word(request, 16);
        if (command == 0) connected = memory_id;
        if (command == 2 && connected == memory_id) connected.reset();
        if (command >= 256) {
            EXPECT_EQ(request.size(), 32 + (command == 512 ? word(request, 24) : 0));
            EXPECT_EQ(connected, memory_id);
        }
    }
}

TEST(Rma, WriteThatMustNotBeMadeIsNotConfirmed) {
    for (const char* overlooked :
         {"no such partition", "end wraps", "beyond the end", "block is cut"}) {
        RmaHost rma(RmaLength::kShort, {"rma-block-outside@40:96"});
        rma.overlooked = overlooked;
        rma.serve();
        EXPECT_EQ(rma.host.first_failure(),
                  "DATA_WRITE response: word at 28 expected 0x00000001, "
                  "got 0x00000000")
            << overlooked;
        EXPECT_EQ(rma.refusal(rma.requests.back()), overlooked);
    }
}

TEST(Rma, FileThatAConnectEmptiesIsFound) {
    RmaHost rma;
    rma.tamper = change(8, 1, 4, [&](Bytes&) { rma.files["10170101"].assign(10000, 0); });
    rma.serve();
    EXPECT_THAT(rma.host.first_failure(),
                HasSubstr("partition 10170101, read of 4096 bytes at 0: byte 0 expected"));
}

// What the model says when the second answer to a command is tampered with.
std::string failure_after(uint32_t command, const Tamper& how) {
    RmaHost rma;
    rma.tamper = change(8, command, 1, how);
    rma.serve();
    EXPECT_FALSE(rma.ended());
    return rma.host.first_failure();
}

TEST(Rma, EveryWordOfAnAnswerIsCompared) {
    const std::tuple<uint32_t, size_t, std::string> table[] = {{1, 36, "CONNECT response: "},
                                                               {3, 28, "DISCONNECT response: "},
                                                               {257, 32, "DATA_READ response: "},
                                                               {513, 32, "DATA_WRITE response: "}};
    for (const auto& [command, words_end, name] : table) {
        for (size_t at = 12; at < words_end; at += 4) {
            const std::string failure = failure_after(command, [at](Bytes& bytes) {
                put(bytes, at, word(bytes, at) + 1);
                seal_answer(bytes);
            });
            EXPECT_THAT(failure, StartsWith(name + "word at " + std::to_string(at) + " expected"));
        }
        for (const size_t more : {size_t{1}, SIZE_MAX}) {
            const std::string failure = failure_after(command, [more](Bytes& bytes) {
                bytes.resize(bytes.size() + more);
                seal_answer(bytes);
            });
            EXPECT_THAT(failure, StartsWith(name + "length expected"));
        }
    }
}

TEST(Rma, WrongAnswersAreReported) {
    const auto with_word = [](size_t at, uint32_t value) {
        return [=](Bytes& bytes) { put(bytes, at, value), seal_answer(bytes); };
    };
    const std::tuple<uint32_t, Tamper, const char*> wrongs[] = {
        {257, [](Bytes& b) { b.back() ^= 1; }, "DATA_READ response: CRC expected 0x"},
        {513, [](Bytes& b) { ++b[4]; }, "total length expected 32, got 33"},
        {1, [](Bytes& b) { b.resize(11); }, "message of 11 bytes: shorter than"},
        {513, with_word(8, 514), "command 514 while DATA_WRITE is outstanding"},
        {257, with_word(32 + 4092, 1), "4096 bytes at 4096: byte 4092 expected 0, got 1"},
    };
    for (const auto& [command, how, failure] : wrongs) {
        EXPECT_THAT(failure_after(command, how), HasSubstr(failure));
    }
}

TEST(Rma, AnswersOutOfTurn) {
    RmaHost early;
    early.host.model.receive(kRma, answer(1, {0xC1000001, 0, 101, 3, 4096, 4096}));
    EXPECT_EQ(early.host.first_failure(), "CONNECT response before the request was read");
    RmaHost late;
    late.serve();
    late.host.model.receive(kRma, answer(3, {101, 0, 101, 0}));
    EXPECT_EQ(late.host.first_failure(), "DISCONNECT response while no request is outstanding");
}

// The channel is lost at every request in turn, by turns before the host has seen it and after it
// has done it; now and then twice more a few requests later.
TEST(Rma, GoesOnAfterTheChannelWasLostAtEveryRequest) {
    for (size_t lost_at = 0;; ++lost_at) {
        RmaHost rma;
        rma.serve(lost_at);
        if (rma.ended()) break;
        for (size_t i = 0; i < (lost_at % 4 ? 1 : 3); ++i) {
            rma.serve(i * (lost_at % 7));
            const bool done = (lost_at + i) % 2;
            if (done) rma.handle(rma.host.model.take_packet(kRma));
            rma.restart();
        }
        rma.serve();
        rma.expect_success("lost at " + std::to_string(lost_at));
    }
}

TEST(Rma, ReadsEverythingBackAfterTheChannelWasLost) {
    RmaHost rma(RmaLength::kLong);
    rma.serve(200);
    Bytes& file = rma.files.begin()->second;
    // Memory that nothing but the last reads of the program would look at.
    file.back() ^= 1;
    rma.restart();
    rma.serve(20);
    EXPECT_THAT(rma.host.first_failure(), HasSubstr("partition 10040100, read of 4096 bytes at "));
    EXPECT_THAT(rma.host.first_failure(), HasSubstr("byte 4095"));
}

TEST(Rma, FaultsAreNotTheHosts) {
    for (const char* fault : {"rma-crc-wrong", "rma-unknown-command@5:514", "rma-block-outside"}) {
        RmaHost rma(RmaLength::kShort, {fault});
        rma.serve();
        rma.expect_success(fault);
    }
}

TEST(Rma, FaultsShowInTheMessages) {
    RmaHost rma(RmaLength::kShort, {"rma-crc-wrong@1", "rma-unknown-command@2:9999"});
    rma.serve(3);
    EXPECT_NE(sealed(rma.requests[0]), rma.requests[0]);
    EXPECT_EQ(rma.requests[1].size(), 12u);
    EXPECT_EQ(word(rma.requests[1], 8), 9999u);
    EXPECT_EQ(word(rma.requests[2], 8), 256u);

    RmaHost cut(RmaLength::kShort, {"rma-block-outside@1:96"});
    cut.overlooked = "block is cut";
    cut.serve();
    EXPECT_EQ(cut.requests.back().size(), 32u + 4000u);
    EXPECT_EQ(word(cut.requests.back(), 24), 4096u);
    EXPECT_EQ(sealed(cut.requests.back()), cut.requests.back());
}

}  // namespace
}  // namespace sim::test
