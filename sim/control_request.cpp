// SPDX-License-Identifier: Apache-2.0
#include "sim/control_request.h"

#include <nlohmann/json.hpp>

#include "sim/behaviour.h"
#include "sim/dfu_packet.h"

namespace sim {

namespace {

constexpr uint32_t kSpiFreeNumber = 0x80205603;
constexpr uint32_t kSpiBusyNumber = 0x80205604;
constexpr uint32_t kResetNumber = 0xc0205605;
constexpr uint32_t kIpcNumber = 0xc0205608;
constexpr uint32_t kBootNumber = 0xc0205609;

constexpr size_t kBlockSize = 32;
constexpr size_t kCmdWord = 5;
constexpr size_t kCountWord = 6;
constexpr size_t kReplyWord = 7;

struct Row {
    uint32_t number;
    uint32_t cmd;
    Command command;
    const char* name;
    uint32_t count = 0;
    bool has_value = false;
    bool has_reply = false;
};

constexpr Row kRows[] = {
    {kSpiFreeNumber, 0, Command::kSpiFree, "SPI free"},
    {kSpiBusyNumber, 0, Command::kSpiBusy, "SPI busy"},
    {kResetNumber, 20, Command::kReset, "reset", 1, true},
    {kIpcNumber, 3, Command::kVersion, "query version", 0, false, true},
    {kBootNumber, 0, Command::kSoftReset, "soft reset"},
    {kBootNumber, 1, Command::kTwmExit, "TWM exit"},
    {kBootNumber, 3, Command::kLoad, "load"},
    {kBootNumber, 4, Command::kUnload, "unload"},
    {kBootNumber, 5, Command::kSetBootMode, "set boot mode", 0, true},
    {kBootNumber, 6, Command::kGetBootMode, "get boot mode"},
    {kBootNumber, 7, Command::kSaveDump, "save dump"},
    {kBootNumber, 8, Command::kBootStatus, "boot status", 0, true},
};

const Row* find_row(Command command) {
    for (const Row& row : kRows) {
        if (row.command == command) return &row;
    }
    return nullptr;
}

bool read_only(uint32_t number) {
    return number == kSpiFreeNumber || number == kSpiBusyNumber;
}

}  // namespace

ControlRequest ControlRequest::decode(uint32_t number, std::span<const uint8_t> block) {
    ControlRequest request;
    request.number = number;
    if (block.size() != kBlockSize && !(block.empty() && read_only(number))) return request;
    for (size_t i = 0; i < request.words.size(); ++i) {
        request.words[i] = dfu::word_at(block, 4 * i);
    }
    for (const Row& row : kRows) {
        if (row.number == number && row.cmd == request.words[kCmdWord])
            request.command = row.command;
    }
    return request;
}

std::string ControlRequest::error() const {
    const Row* row = find_row(command);
    if (!row) {
        return "ioctl " + hex(number) + " with cmd " + std::to_string(words[kCmdWord]) +
               " is no request of the control device";
    }
    for (size_t i = 0; i < words.size(); ++i) {
        uint32_t expected = 0;
        if (i == kCmdWord) expected = row->cmd;
        if (i == kCountWord) expected = row->count;
        if (i == 0 && row->has_value) continue;
        if (i == kReplyWord && row->has_reply) continue;
        if (words[i] == expected) continue;
        return std::string(row->name) + ": word at " + std::to_string(4 * i) + " expected " +
               std::to_string(expected) + ", got " + hex(words[i]);
    }
    return "";
}

nlohmann::json ControlRequest::describe() const {
    const Row* row = find_row(command);
    nlohmann::json fields = {{"command", row ? row->name : "unknown"},
                             {"request", hex(number)},
                             {"cmd", words[kCmdWord]},
                             {"value", value()}};
    if (command == Command::kSetBootMode)
        fields["mode"] = boot_mode_name(static_cast<int>(value()));
    return fields;
}

}  // namespace sim
