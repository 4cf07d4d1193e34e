// SPDX-License-Identifier: Apache-2.0
// A push of misc data over the real transport: the co-processor answers as it likes or not at all,
// reads come short, writes fail. Each packet that reaches it is judged.
#include <algorithm>
#include <cerrno>
#include <optional>

#include "fuzz/harness.h"
#include "fwupdater/marlo_fw_updater.h"

using fuzz::Bytes;
using fuzz::must;
using fuzz::platform;
using fuzz::word_at;

namespace {

constexpr const char* kChannel = "/dev/glink_pkt_marlo_custom_data";
constexpr const char* kFirmware = "/vendor/bt_firmware/image/mrbtfw20.mbn";
constexpr const char* kSettings = "/vendor/bt_firmware/image/mrnv20.bin";

constexpr size_t kHeader = 16;
constexpr int kTries = 3;
constexpr uint32_t kLimits[] = {17, 18, 24, 32, 64, 116, 1000, 4096, 16, 15, 0, 0xFFFFFFFF};
constexpr int kErrors[] = {EIO, EINTR, EAGAIN, EBUSY, ENODEV, ENOMEM};

// A word is in the answer where the decision for it has no other idea.
uint32_t odd_word(fuzz::Input& input) {
    return input.flip() ? input.word() : input.below(256);
}

// The co-processor's end of the channel.
class Receiver {
  public:
    Receiver(fuzz::Input& input, Bytes firmware, Bytes settings)
        : input_(input), files_{std::move(firmware), std::move(settings)} {}

    void begin_push() {
        platform().remove(kChannel);
        platform().device(kChannel);
        platform().on_write(kChannel, [this](const Bytes& piece) { take(piece); });
        pending_.clear();
        is_cut_ = false;
        is_clear_ = true;
        tries_[0] = tries_[1] = 0;
        is_finished_ = false;
        script_next_write();
    }

    // Takes what one write brings, a packet or a part of one.
    void take(const Bytes& piece) {
        pending_.insert(pending_.end(), piece.begin(), piece.end());
        const bool is_cut = std::exchange(is_cut_, false);
        if (!piece.empty() && !is_whole()) {
            must(pending_.size() < kHeader + longest(), "%zu bytes and no end", pending_.size());
            if (is_cut) {
                pending_.clear();  // the rest does not come
            }
            return;
        }
        const bool is_taken = !piece.empty();
        if (is_taken) {
            judge();
        } else {
            is_lost_ = true;  // without an error
        }
        pending_.clear();
        answer(is_taken);
        script_next_write();
    }

    size_t longest() const { return std::max(files_[0].size(), files_[1].size()) + 4; }

  private:
    bool is_whole() const {
        if (pending_.size() < kHeader) {
            return false;
        }
        const uint32_t kind = word_at(pending_, 0);
        const bool has_payload = kind == 1 || kind == 2 || kind == 4;
        return pending_.size() >= kHeader + (has_payload ? word_at(pending_, 8) : 0);
    }

    void judge() {
        const uint32_t kind = word_at(pending_, 0);
        const uint32_t type = word_at(pending_, 4);
        must(type <= 1, "a packet of type %u", type);
        must(!is_finished_, "packet %u after the finish", kind);
        switch (kind) {
            case 0:
                return judge_start(type);
            case 1:
            case 2:
                return judge_data(type, kind == 2);
            case 4:
                return judge_crc(type);
            case 5:
                is_finished_ = true;
                must(pending_ == Bytes{5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                     "another finish packet");
                return;
            default:
                must(false, "a packet of kind %u", kind);
        }
    }

    void judge_start(uint32_t type) {
        must(pending_.size() == kHeader && word_at(pending_, 12) == 0, "another start packet");
        must(word_at(pending_, 8) == files_[type].size(), "%u bytes of %zu are announced",
             word_at(pending_, 8), files_[type].size());
        must(++tries_[type] <= kTries, "type %u is sent too often", type);
        type_ = type;
        position_ = 0;
        sequence_ = 0;
        is_lost_ = false;
        limit_.reset();
    }

    void judge_data(uint32_t type, bool is_last) {
        const uint32_t size = word_at(pending_, 8);
        const uint32_t sequence = word_at(pending_, 12);
        must(pending_.size() == kHeader + size, "%u bytes come in %zu", size, pending_.size());
        must(is_last || size > 0, "a packet without data and not the last");
        const Bytes& file = files_[type];
        must(size <= file.size(), "%u bytes of %zu", size, file.size());
        if (is_lost_) {
            return;  // who knows what comes after what
        }
        must(type == type_, "data of type %u in the middle of another", type);
        must(sequence == sequence_ + 1, "packet %u after %u", sequence, sequence_);
        must(size <= file.size() - position_, "%u bytes from %zu of %zu", size, position_,
             file.size());
        must(!is_last || size == file.size() - position_, "the last is not the last");
        const auto begin = file.begin() + static_cast<ptrdiff_t>(position_);
        must(std::equal(pending_.begin() + kHeader, pending_.end(), begin),
             "%u bytes from %zu are wrong", size, position_);
        must(!limit_ || pending_.size() <= size_t{*limit_} + 1,
             "a packet of %zu bytes, where %u is the limit", pending_.size(), limit_.value_or(0));
        sequence_ = sequence;
        position_ += size;
    }

    void judge_crc(uint32_t type) const {
        must(pending_.size() == kHeader + 4 && word_at(pending_, 12) == 0, "another CRC packet");
        must(is_lost_ || type == type_, "the CRC of type %u in the middle of another", type);
        must(word_at(pending_, 16) == fuzz::crc_of({files_[type]}), "the CRC of other data");
    }

    void reads(std::span<const uint8_t> bytes) {
        scripted::Step step;
        step.data.assign(bytes.begin(), bytes.end());
        platform().script_read(kChannel, step);
    }

    void answer(bool is_received) {
        Bytes bytes(16, 0xEE);
        fuzz::append_word(bytes, 0);
        switch (input_.below(10)) {
            case 0:  // an error, or an odd limit
                bytes.resize(16);
                fuzz::append_word(bytes, odd_word(input_));
                fuzz::append_word(bytes, odd_word(input_));
                reads(bytes);
                return;
            case 1:
                is_clear_ = false;
                reads(input_.take(input_.below(64)));
                return;
            case 2:
                is_clear_ = false;
                platform().script_read(kChannel, scripted::failure(input_.pick(kErrors)));
                return;
            case 3:
                is_clear_ = false;  // an answer in parts, perhaps with an empty one
                reads(input_.take(input_.below(16)));
                reads(input_.take(input_.below(16)));
                return;
            case 4:
                return;  // none
            case 5:
                is_clear_ = false;
                answer_amiss();
                return;
            default:
                fuzz::append_word(bytes, input_.pick(kLimits));
                reads(bytes);
                set_limit(is_received, word_at(bytes, 20));
        }
    }

    void set_limit(bool is_received, uint32_t limit) {
        const bool is_start = is_received && sequence_ == 0 && !limit_;
        if (is_start && is_clear_ && limit > kHeader) {
            limit_ = limit;
        }
    }

    void answer_amiss() {
        const uint32_t kind = input_.below(4);
        if (kind == 0) {
            platform().hang_up(kChannel);
        } else if (kind == 1) {  // a hang-up in the middle of it
            platform().script_poll_events(kChannel, POLLIN);
            reads(input_.take(input_.below(24)));
            platform().hang_up(kChannel);
        } else {
            platform().script_poll_failure(input_.pick({EINTR, 0, ENOMEM}));
        }
    }

    void script_next_write() {
        scripted::Step step;
        switch (input_.below(8)) {
            case 0:  // in two parts, the second of which may fail
                step.accepted = 1 + input_.below(32);
                platform().script_write(kChannel, step);
                if (input_.flip()) {
                    is_cut_ = true;
                    platform().script_write(kChannel, scripted::failure(EIO));
                }
                return;
            case 1:
                platform().script_write(kChannel, scripted::failure(input_.pick(kErrors)));
                return;
            case 2:
                step.accepted = 0;
                platform().script_write(kChannel, step);
                return;
            case 3:
                for (uint32_t busy = input_.below(110); busy > 0; --busy) {
                    platform().script_write(kChannel, scripted::failure(EBUSY));
                }
                return;
            default:
                return;
        }
    }

    fuzz::Input& input_;
    const Bytes files_[2];  // by type
    Bytes pending_;
    int tries_[2] = {};
    uint32_t type_ = 0;
    size_t position_ = 0;
    uint32_t sequence_ = 0;
    std::optional<uint32_t> limit_;  // where it is sure which one the daemon has read
    bool is_lost_ = false;           // a packet of this try has not been taken
    bool is_clear_ = true;           // each answer so far was read whole
    bool is_cut_ = false;            // the next write takes a part, the one after it fails
    bool is_finished_ = false;
};

class Listener : public marlo_fw_updater::Callback {
  public:
    void handleDFUResponse(std::string message, Status) override {
        must(false, "a report of a download: %s", message.c_str());
    }
    void handleSHMResponse(std::string, Status status) override { last_status = status; }
    void onDFUStateRecived(DFUState) override { must(false, "a report of a state"); }
    Status last_status = STATUS_INFO;
};

Bytes make_file(const char* path, fuzz::Input& input) {
    if (input.below(8) == 1) {
        return {};  // there is none
    }
    Bytes bytes = fuzz::pattern(input.below(4) == 1 ? 2 * input.below(256) : input.below(120));
    platform().file(path, fuzz::text_of(bytes));
    return bytes;
}

void push(marlo_fw_updater& updater, Receiver& receiver, fuzz::Input& input) {
    Listener listener;
    receiver.begin_push();
    if (input.below(8) == 1) {
        platform().fail_opens(kChannel, std::vector<int>(input.below(4), ENODEV));
    }
    const int64_t start_ns = platform().now_ns();
    updater.startMarloSHMUpdater(&listener);
    updater.marloMiscDataUpdateReq();
    updater.endMarloSHMUpdater();
    must(listener.last_status == Listener::STATUS_ERASE_DONE, "the last report is %u",
         listener.last_status);
    must(platform().open_descriptors() == 0, "the channel is left open");
    // Each packet is waited for at most 2 s, and half a second for room.
    const size_t most = size_t{2} * kTries * (receiver.longest() + 3) + 1;
    const int64_t seconds = (platform().now_ns() - start_ns) / 1'000'000'000;
    must(seconds <= static_cast<int64_t>(3 * most + 3), "a push of %zu s", size_t(seconds));
    must(fuzz::log_lines() <= 300 * most, "%zu log lines", fuzz::log_lines());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::begin();
    fuzz::Input input(data, size);
    Bytes firmware = make_file(kFirmware, input);
    Bytes settings = make_file(kSettings, input);
    Receiver receiver(input, std::move(firmware), std::move(settings));
    marlo_fw_updater updater;
    push(updater, receiver, input);
    if (!input.empty()) {
        push(updater, receiver, input);
    }
    return 0;
}
