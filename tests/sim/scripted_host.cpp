// SPDX-License-Identifier: Apache-2.0
#include "tests/sim/scripted_host.h"

#include <stdlib.h>

#include <algorithm>
#include <fstream>

#include "sim/firmware_generator.h"

namespace sim::test {

FirmwareDirectory::FirmwareDirectory() {
    std::string name = std::filesystem::temp_directory_path() / "sim-firmware-XXXXXX";
    if (!mkdtemp(name.data())) throw std::runtime_error("mkdtemp " + name);
    path_ = name;
    generate_images(path_);
}

FirmwareDirectory::~FirmwareDirectory() {
    std::filesystem::remove_all(path_);
}

void FirmwareDirectory::write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path_ / name, std::ios::binary) << bytes;
}

const FirmwareBundle& generated_firmware() {
    static const FirmwareBundle bundle = FirmwareDirectory().load();
    return bundle;
}

uint32_t word(const Bytes& bytes, size_t at) {
    return static_cast<uint32_t>(bytes.at(at) | bytes.at(at + 1) << 8 | bytes.at(at + 2) << 16) |
           static_cast<uint32_t>(bytes.at(at + 3)) << 24;
}

void put(Bytes& bytes, size_t at, uint32_t value) {
    for (size_t i = 0; i < 4; ++i) bytes.at(at + i) = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t crc(std::span<const uint8_t> bytes) {
    uint32_t crc = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320 : 0);
    }
    return ~crc;
}

Bytes words(const std::vector<uint32_t>& values) {
    Bytes bytes(4 * values.size());
    for (size_t i = 0; i < values.size(); ++i) put(bytes, 4 * i, values[i]);
    return bytes;
}

void seal(Bytes& message) {
    put(message, 8, static_cast<uint32_t>(message.size()));
    put(message, 12, 0);
    put(message, 12, crc(message));
}

Bytes message(uint32_t id, const Bytes& payload) {
    Bytes bytes = words({id, 0x0A0B0C0D, 0, 0});
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    seal(bytes);
    return bytes;
}

Tamper add_one(size_t at) {
    return [at](Bytes& bytes) {
        ++bytes.at(at);
        seal(bytes);
    };
}

Tamper change(size_t at, uint32_t id, int n, Tamper how) {
    return [=, seen = 0](Bytes& bytes) mutable {
        if (word(bytes, at) == id && seen++ == n) how(bytes);
    };
}

Behaviour running(uint32_t boot_mode, const std::vector<std::string>& faults) {
    Behaviour behaviour;
    behaviour.boot_mode = static_cast<int>(boot_mode);
    behaviour.running = true;
    for (const std::string& fault : faults) behaviour.faults.push_back(parse_fault(fault));
    return behaviour;
}

bool DaemonMemory::read(uint32_t address, std::span<uint8_t> into) {
    if (address < kStart || address - kStart + into.size() > bytes.size()) return false;
    std::copy_n(bytes.begin() + (address - kStart), into.size(), into.begin());
    return true;
}

bool DaemonMemory::write(uint32_t address, std::span<const uint8_t> from) {
    if (address < kStart || address - kStart + from.size() > bytes.size()) return false;
    std::copy(from.begin(), from.end(), bytes.begin() + (address - kStart));
    return true;
}

void EventList::event(const Event& event) {
    events.push_back(event);
    if (judge) judge->event(event);
}

Host::Host(Behaviour behaviour, FirmwareBundle firmware)
    : model(std::move(behaviour), firmware, events), firmware_(std::move(firmware)) {}

int Host::ioctl(uint32_t number, const std::vector<uint32_t>& block_words) {
    Bytes block = words(block_words);
    return model.ioctl(number, block, memory);
}

int Host::boot_command(uint32_t cmd, uint32_t value) {
    return ioctl(0xc0205609, {value, 0, 0, 0, 0, cmd, 0, 0});
}

int Host::spi(bool busy) {
    return ioctl(busy ? 0x80205604 : 0x80205603, {});
}

int Host::reset() {
    put(memory.bytes, 0, 0x08000000);
    return ioctl(0xc0205605, {DaemonMemory::kStart, 0, 0, 0, 0, 20, 1, 0});
}

int Host::query_version() {
    return ioctl(0xc0205608, {0, 0, 0, 0, 0, 3, 0, DaemonMemory::kStart});
}

void Host::boot_in_host_mode() {
    boot_command(5, kHostMode);
    spi(true);
    boot_command(3);
    model.open_channel(Channel::kDfu);
    take_wakelock();
}

void Host::take_wakelock() {
    model.write_wake_lock(kWakelock);
}

void Host::send(Bytes bytes) {
    if (tamper) tamper(bytes);
    if (!bytes.empty()) model.receive(Channel::kDfu, bytes);
}

void Host::answer(size_t limit) {
    while (limit-- > 0) {
        while (!model.readable(Channel::kDfu)) {
            const auto deadline = model.next_deadline();
            if (!deadline) return;
            model.set_time(*deadline);
        }
        answer_packet(model.take_packet(Channel::kDfu));
    }
}

void Host::answer_packet(const Bytes& packet) {
    const uint32_t id = word(packet, 0);
    if (id == 14 && word(packet, 16) == 1) {
        const uint32_t state = word(packet, 28);
        if (state == 0) {
            return send(message(1, words({1, 0, 0, 0x20474D49, 0x54445055})));
        }
        if (state == 4 || word(packet, 20) != 0) return;
        const Bytes request(packet.begin() + 32, packet.end());
        return answer_packet(message(state == 3 ? 11 : state == 2 ? 5 : 3, request));
    }
    if (id == 11) return send(message(12, words({0, 0, 0})));
    if (id != 3 && id != 5) return;
    const auto& images = firmware_.images;
    const auto image = std::find_if(images.begin(), images.end(),
                                    [&](const Image& i) { return i.id == word(packet, 16); });
    if (id == 3) {
        const size_t size = image == images.end() ? 0 : image->data.size();
        return send(message(4, words({word(packet, 16), static_cast<uint32_t>(size), 0})));
    }
    const Bytes& data = image->data;
    const uint32_t offset = word(packet, 20);
    const uint32_t length = word(packet, 24);
    Bytes payload = words({image->id, offset, length});
    for (size_t at = offset; at < size_t{offset} + length; ++at) {
        payload.push_back(at < data.size() ? data[at] : 0);
    }
    send(message(6, payload));
}

void Host::erase_all() {
    for (const EraseRange& range : firmware_.erase_ranges) {
        send(message(13, words({0, range.offset, range.size})));
        answer();
    }
}

void Host::ask_state() {
    send(message(13, words({1, 0, 0})));
}

void Host::download() {
    erase_all();
    ask_state();
    answer();
}

std::string Host::first_failure() const {
    return model.failures().empty() ? "" : model.failures().front();
}

std::vector<std::string> Host::phases() const {
    std::vector<std::string> phases;
    for (const Event& event : events.events) {
        if (event.kind == EventKind::kPhase) phases.push_back(event.fields.at("phase"));
    }
    return phases;
}

}  // namespace sim::test
