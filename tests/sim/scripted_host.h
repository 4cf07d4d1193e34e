// SPDX-License-Identifier: Apache-2.0
// A small host for the tests of the model: it does everything right, except where a test tells it
// to tamper with what it sends. It makes its messages by itself, CRC included.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/coprocessor.h"
#include "sim/event.h"
#include "sim/scenario.h"

namespace sim::test {

// A directory that is removed at the end, with generated firmware in it.
class FirmwareDirectory {
  public:
    FirmwareDirectory();
    ~FirmwareDirectory();
    FirmwareDirectory(const FirmwareDirectory&) = delete;
    FirmwareDirectory& operator=(const FirmwareDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }
    void write(const std::string& name, const std::string& bytes) const;
    FirmwareBundle load() const { return FirmwareBundle::load(path_, path_ / "fallback.txt", {}); }

  private:
    std::filesystem::path path_;
};

// The bundle of generated firmware, loaded once.
const FirmwareBundle& generated_firmware();

uint32_t word(const Bytes& bytes, size_t at);
void put(Bytes& bytes, size_t at, uint32_t value);
uint32_t crc(std::span<const uint8_t> bytes);
Bytes words(const std::vector<uint32_t>& values);
// A message with a right header.
Bytes message(uint32_t id, const Bytes& payload);
// Puts the right length and CRC into a message whose payload was changed.
void seal(Bytes& message);

using Tamper = std::function<void(Bytes&)>;
// Adds 1 to the byte at `at`, and seals.
Tamper add_one(size_t at);
// Changes the n-th message (from 0) whose word at `at` is `id`.
Tamper change(size_t at, uint32_t id, int n, Tamper how);

constexpr std::string_view kWakelock("MARLODAEMON_WAKEUP", 19);  // its terminator included

// A co-processor that is up in this mode.
Behaviour running(uint32_t boot_mode, const std::vector<std::string>& faults = {});

class DaemonMemory : public UserMemory {
  public:
    static constexpr uint32_t kStart = 0x1000;
    Bytes bytes = Bytes(512);

    bool read(uint32_t address, std::span<uint8_t> into) override;
    bool write(uint32_t address, std::span<const uint8_t> from) override;
};

class EventList : public Observer {
  public:
    void event(const Event& event) override;
    std::vector<Event> events;
    Judge* judge = nullptr;
};

class Host {
  public:
    explicit Host(Behaviour behaviour = {}, FirmwareBundle firmware = generated_firmware());

    EventList events;
    DaemonMemory memory;
    Coprocessor model;

    // Control commands: cmd of the boot ioctl with a value; result of the ioctl.
    int boot_command(uint32_t cmd, uint32_t value = 0);
    int spi(bool busy);
    int ioctl(uint32_t number, const std::vector<uint32_t>& block_words);
    int reset();
    int query_version();
    // Marks the bus busy, loads in HOST mode, opens the channel, takes the wakelock.
    void boot_in_host_mode();
    void take_wakelock();

    // Sends a message after `tamper` had its way; an empty one is not sent.
    void send(Bytes bytes);
    Tamper tamper;
    // Answers what is to be read until nothing more comes; as many packets as `limit` at most.
    void answer(size_t limit = 1000000);
    // Erases all ranges, asks for the state, answers until the session ends.
    void download();
    void ask_state();
    void erase_all();

    std::string first_failure() const;
    std::vector<std::string> phases() const;

  private:
    void answer_packet(const Bytes& packet);

    FirmwareBundle firmware_;
};

}  // namespace sim::test
