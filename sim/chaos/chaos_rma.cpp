// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/chaos_rma.h"

#include <algorithm>

#include "sim/rma_packet.h"

namespace sim {
namespace {

constexpr HostFraming kFraming = {40, 13, 4};
constexpr MessageLayout kLayout = {8, 4, 0, 12};

constexpr uint32_t kUnread = 0xEEEEEEEE;
// Ids that no partition of the well-behaved co-processor has.
constexpr uint32_t kFirstId = 7000;
constexpr uint32_t kSecondId = 5;
constexpr uint32_t kSizes[] = {0, 1, 31, 4095, 4096, 4097, 65536, 100'000, 1 << 20};
constexpr uint32_t kLargestBlock = 6000;
constexpr size_t kMostFiles = 60;
constexpr uint32_t kLargestPartition = 2 << 20;
constexpr uint32_t kHugePartition = 1 << 30;  // of which the host can make none

constexpr uint32_t kOddOffsets[] = {0, 1, 4095, 65535, 1 << 20, 0x7fffffff, 0xfffffff0, 0xffffffff};
constexpr uint32_t kOddSizes[] = {0,          1,          4097,       (16 << 20), (16 << 20) + 1,
                                  0x7fffffff, 0x80000000, 0xfffffff0, 0xffffffff};

}  // namespace

ChaosRma::ChaosRma(ChaosContext& context, bool huge_partitions)
    : AskingChannel("rma", kFraming, kLayout, context), huge_partitions_(huge_partitions) {
    uint32_t id = kFirstId;
    for (const uint32_t size : kSizes) partitions_.push_back({id++, kSecondId, size, 0});
}

void ChaosRma::new_host() {
    AskingChannel::new_host();
    host_.begin_anew();
}

void ChaosRma::message_read(std::span<const uint8_t> message) {
    if (auto answer = host_.answer_to(message)) owe(OwedPacket{{std::move(*answer)}});
}

std::string ChaosRma::header_error(std::span<const uint8_t> packet) const {
    return rma::header_error(packet);
}

// Whatever the host takes for a CONNECT, the disk has other users.
bool ChaosRma::may_send(const std::vector<Bytes>& packets, Dice&) {
    HostReader host = reader();
    for (const Bytes& message : messages_of(packets, host)) {
        const uint64_t size = RmaHost::partition_wanted(message);
        if (size == 0 || (size >= kHugePartition && huge_partitions_)) continue;
        if (size > kLargestPartition || host_.files().size() >= kMostFiles) return false;
    }
    return true;
}

Bytes ChaosRma::next_request(Dice& dice) {
    if (dice.percent(context_.noise / 3)) return hostile(dice);
    const uint32_t kind = dice.below(100);
    if (kind < 8) return connect(dice);
    if (kind < 10) {
        return rma::make_message(rma::kDisconnect, {kUnread, partitions_[connected_].memory_id});
    }
    return kind < 55 ? read(dice) : write(dice);
}

Bytes ChaosRma::connect(Dice& dice) {
    connected_ = dice.below(static_cast<uint32_t>(partitions_.size()));
    const RmaPartition& partition = partitions_[connected_];
    return rma::make_message(rma::kConnect, {kUnread, partition.memory_id, partition.second_id,
                                             partition.size, kUnread, kUnread, dice.word()});
}

// Inside the partition, if it is the one that the host knows.
Bytes ChaosRma::read(Dice& dice) const {
    const RmaPartition& partition = partitions_[connected_];
    const uint32_t size = dice.below(std::min(partition.size, kLargestBlock) + 1);
    const uint32_t offset = dice.below(partition.size - size + 1);
    return rma::make_message(rma::kDataRead,
                             {dice.word(), partition.memory_id, offset, size, kUnread});
}

Bytes ChaosRma::write(Dice& dice) const {
    const RmaPartition& partition = partitions_[connected_];
    const uint32_t size = dice.below(std::min(partition.size, kLargestBlock) + 1);
    const uint32_t offset = dice.below(partition.size - size + 1);
    return rma::make_message(rma::kDataWrite,
                             {partition.memory_id, partition.memory_id, offset, size, kUnread},
                             dice.bytes(size));
}

// Another size for a partition that there is, another second id, too short a message, or a size
// that no host has.
Bytes ChaosRma::hostile_connect(Dice& dice) {
    const RmaPartition& partition =
        partitions_[dice.below(static_cast<uint32_t>(partitions_.size()))];
    const uint32_t way = dice.below(4);
    if (way == 0 && huge_partitions_) {
        return rma::make_message(rma::kConnect, {kUnread, dice.word(), dice.word(),
                                                 dice.one_in(2) ? 0x90000000 : 0xffffffff, kUnread,
                                                 kUnread, dice.word()});
    }
    if (way == 1) {
        return rma::make_message(rma::kConnect, {kUnread, partition.memory_id, 100 + dice.below(40),
                                                 dice.below(5000), kUnread, kUnread, dice.word()});
    }
    if (way == 2) {
        return rma::make_message(rma::kConnect,
                                 {kUnread, partition.memory_id, partition.second_id});
    }
    return rma::make_message(rma::kConnect, {kUnread, partition.memory_id, partition.second_id,
                                             partition.size + 1, kUnread, kUnread, dice.word()});
}

Bytes ChaosRma::hostile(Dice& dice) {
    const uint32_t id = partitions_[connected_].memory_id;
    const uint32_t offset = dice.one_of(kOddOffsets);
    const uint32_t size = dice.one_of(kOddSizes);
    switch (dice.below(6)) {
        case 0:
            return hostile_connect(dice);
        case 1:  // the largest one that is answered costs a lot
            return rma::make_message(rma::kDataRead,
                                     {dice.word(), id, offset,
                                      size == 16 << 20 && !dice.one_in(8) ? 4096 : size, kUnread});
        case 2:  // the block is not all in the message
            return rma::make_message(rma::kDataWrite, {id, id, 0, size, kUnread},
                                     dice.bytes(dice.below(64)));
        case 3:  // the block is in the message, but not in the partition
            return rma::make_message(rma::kDataWrite, {id, id, offset, 64, kUnread},
                                     dice.bytes(64));
        case 4:  // names another file, or none
            return rma::make_message(rma::kDataWrite, {id + dice.below(3), id, 0, 16, kUnread},
                                     dice.bytes(16));
        default:
            return rma::make_message(rma::kDisconnect, {dice.word(), dice.word()});
    }
}

}  // namespace sim
