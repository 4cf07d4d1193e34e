// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/asking_channel.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace sim {
namespace {

constexpr int kRequestsAtOnce = 8;  // lost ones included
constexpr int kRetriesOfTheHost = 100;
constexpr uint32_t kRefusals[] = {1, 1, 1, 2, 5, 5, 40, 99, 100, 130};
// The host may be about its boot mode meanwhile, with a control device that is busy.
constexpr Time kLongestAnswer = std::chrono::seconds(60);
// The kernel hands larger packets over in pieces, some of which may be taken when one is refused.
constexpr size_t kLargestRefused = 256 << 10;
// So it does with larger reads, the first piece of which has at least so many bytes.
constexpr size_t kSmallestPiece = 1'000'000;

}  // namespace

void AskingChannel::new_host() {
    forget_owed();
    reader_.forget();
}

void AskingChannel::closed(bool was_hung_up) {
    if (!was_hung_up && !owed_.empty() && !context_.host_ends) {
        fail("the host closes the channel and owes a packet");
    }
    AskingChannel::new_host();
}

void AskingChannel::forget_owed() {
    owed_.clear();
    owed_since_.reset();
    written_ = 0;
    refusals_ = 0;
}

void AskingChannel::owe(std::optional<OwedPacket> packet) {
    if (packet && connected() && !anything_goes()) owed_.push_back(std::move(*packet));
}

std::string AskingChannel::overdue(Time now) {
    if (quiet()) {
        owed_since_.reset();
    } else if (!owed_since_) {
        owed_since_ = now;
    }
    if (!owed_since_ || now < *owed_since_ + kLongestAnswer) return "";
    return owed_.empty() ? "the host does not read what it was sent"
                         : "the host owes a packet of " +
                               std::to_string(owed_.front().allowed.front().size()) + " bytes";
}

void AskingChannel::begins_to_read() {
    if (!reader_.between_messages() || owed_.empty() || anything_goes()) return;
    fail("the host reads on and owes a packet of " +
         std::to_string(owed_.front().allowed.front().size()) + " bytes");
    forget_owed();
}

void AskingChannel::host_reads(size_t size, std::span<const uint8_t> bytes) {
    owed_since_.reset();
    begins_to_read();
    const size_t right = reader_.next_read();
    if (size > right || size < std::min(right, kSmallestPiece)) {
        fail(differs("bytes asked for in a read:", right, size));
    }
    come_to(reader_.took(bytes));
}

void AskingChannel::read_failed(int error) {
    begins_to_read();
    come_to(reader_.failed(error));
}

void AskingChannel::come_to(HostReader::Outcome outcome) {
    if (outcome == HostReader::Outcome::kMessage) message_read(reader_.message());
    if (outcome == HostReader::Outcome::kFailed) owe(after_error());
}

void AskingChannel::pump() {
    for (int i = 0; i < kRequestsAtOnce; ++i) {
        const bool in_turn = connected() && settled() && trouble_.empty_reads == 0;
        if (!in_turn || context_.requests_due == 0 || context_.host_ends || !may_ask()) return;
        send_next();
    }
}

void AskingChannel::send_next() {
    Dice dice = roll("packet");
    BrokenPackets next = {"", {next_request(dice)}};
    if (dice.percent(context_.noise)) {
        if (dice.one_in(12)) {
            next = {"packets in another order", {next_request(dice), next.packets.front()}};
        } else {
            next = break_packet(next.packets.front(), layout_, dice);
        }
    }
    if (dice.percent(context_.noise / 8)) {
        trouble_.failing_reads = dice.between(1, 4);
        trouble_.read_error = dice.one_in(2) ? EAGAIN : EIO;
    }
    if (!may_send(next.packets, dice)) return;
    --context_.requests_due;
    count(next.how.empty() ? "request" : next.how);
    for (Bytes& packet : next.packets) send(std::move(packet));
}

std::vector<Bytes> AskingChannel::messages_of(const std::vector<Bytes>& packets,
                                              HostReader& reader) {
    std::vector<Bytes> messages;
    for (const Bytes& packet : packets) {
        std::span<const uint8_t> rest = packet;
        do {
            const auto piece = rest.first(std::min(rest.size(), reader.next_read()));
            rest = rest.subspan(piece.size());
            if (reader.took(piece) == HostReader::Outcome::kMessage) {
                messages.push_back(reader.message());
            }
        } while (!rest.empty());
    }
    return messages;
}

// The one that the host owes and that has this part where the last write ended; null: none.
const Bytes* AskingChannel::owed_packet(std::span<const uint8_t> part) const {
    if (owed_.empty()) return nullptr;
    for (const Bytes& packet : owed_.front().allowed) {
        if (packet.size() - std::min(packet.size(), written_) < part.size()) continue;
        const auto begin = packet.begin() + static_cast<std::ptrdiff_t>(written_);
        if (std::equal(part.begin(), part.end(), begin)) return &packet;
    }
    return nullptr;
}

int AskingChannel::take(std::span<const uint8_t> part) {
    const auto size = static_cast<int>(part.size());
    if (anything_goes()) {
        const std::string error = header_error(part);
        if (!error.empty()) fail(error);
        seen(part);
        return size;
    }
    const Bytes* whole = owed_packet(part);
    if (!whole) {
        fail(owed_.empty()
                 ? "a packet of " + std::to_string(size) + " bytes that is not owed"
                 : "another packet than the one owed, of " + std::to_string(size) + " bytes");
        forget_owed();
        return size;
    }
    if (written_ == 0 && refusals_ == 0) plan_write_trouble();
    if (whole->size() <= kLargestRefused && trouble_.failing_writes > 0) return refuse();
    const bool cut = std::exchange(cut_write_, false) && size > 1;
    const int taken = cut ? size / 2 : size;
    written_ += static_cast<size_t>(taken);
    if (written_ == whole->size()) {
        seen(*whole);
        written();
    }
    return taken;
}

void AskingChannel::plan_write_trouble() {
    Dice dice = roll("write");
    if (trouble_.failing_writes > 0 || !dice.percent(context_.noise / 12)) return;
    cut_write_ = dice.one_in(4);
    if (cut_write_) return count("write taken in part");
    trouble_.failing_writes = 1;
    trouble_.write_error = 0;
    if (dice.one_in(4)) return;
    trouble_.write_error = EIO;
    if (dice.one_in(3)) return;
    trouble_.failing_writes = dice.one_of(kRefusals);
    trouble_.write_error = dice.one_in(2) ? EAGAIN : EBUSY;
}

int AskingChannel::refuse() {
    if (trouble_.failing_writes != ChannelTrouble::kForEver) --trouble_.failing_writes;
    const int error = trouble_.write_error;
    count(error == 0 ? "write of which nothing is taken" : "failing write");
    if (error == EAGAIN || error == EBUSY) {
        if (++refusals_ == kRetriesOfTheHost) give_up(true);
    } else {
        give_up(error != 0);
    }
    return -error;
}

// The host gives the packet up. An error while it deals with an error is not dealt with again.
void AskingChannel::give_up(bool is_error) {
    const OwedPacket packet = std::move(owed_.front());
    owed_.pop_front();
    written_ = 0;
    refusals_ = 0;
    if (!is_error || packet.on_error) return;
    if (auto next = after_error()) owed_.push_front(std::move(*next));
}

void AskingChannel::written() {
    const OwedPacket packet = std::move(owed_.front());
    owed_.pop_front();
    written_ = 0;
    refusals_ = 0;
    owed_since_.reset();
    count("answer");
    sent(packet);
}

}  // namespace sim
