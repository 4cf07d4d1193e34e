// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/scripted/scripted_platform.h"
#include "rma/marlo_rma.h"
#include "rma/rma_messages.h"
#include "tests/bytes.h"

using Lines = std::vector<std::string>;

inline constexpr char kDirectory[] = "/data/vendor/aon/";
inline constexpr char kUnfinished[] = "/data/vendor/aon/unfinished";

// A message as the co-processor sends it: the words from offset 12 on, then the block.
Bytes message(uint32_t command, const std::vector<uint32_t>& words = {}, const Bytes& block = {});

// An answer in words, "1: 7 0 3" or "257: 5 4 (a0 a1)": the words of its fields, then the block.
// Its CRC is judged with zlib's.
std::string answer_text(const Bytes& answer);

// The log without line numbers, "D readFile: read : 4", and rma_conn_res_event_cb as "event".
Lines log_lines();

// What happens to the transports of a test goes into the platform's transcript: "make NAME SIZE",
// "connect with reader", "send ANSWER", "disconnect", "delete".
struct TransportScript {
    bool opens = true;
    std::optional<int> send_result;  // the byte count unless set
};

class RmaTest : public ::testing::Test {
  protected:
    RmaTest();

    // An empty directory, and nothing recorded.
    static void begin_anew();
    void connect(uint32_t memory_id, uint32_t second_id, uint32_t partition_size,
                 uint32_t client_private = 0);
    // The answer to this message; "" where there is none.
    std::string answer_to(const Bytes& request);
    std::string write(uint32_t request_word, uint32_t offset, const Bytes& block);
    std::string read(uint32_t offset, uint32_t size);

    static Lines files() { return scripted::platform().files_below(kDirectory); }
    static std::string contents(const std::string& name);
    static void file(const std::string& name, const std::string& contents) {
        scripted::platform().file(kDirectory + name, contents);
    }
    static size_t logged(const std::string& text) { return scripted::platform().count(text); }

    TransportScript script_;
    marlo_rma rma_;
};
