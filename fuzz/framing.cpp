// SPDX-License-Identifier: Apache-2.0
// The transport: reads of any size and error, events and hang-ups on its reader thread, failed
// opens and writes. All that a reader meets is scripted before it starts or while it waits, so that
// an input always takes the same course.
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <string>

#include "fuzz/harness.h"
#include "glink/marlo_glink.h"

using fuzz::Bytes;
using fuzz::must;
using fuzz::platform;
using fuzz::word_at;

namespace {

struct Kind {
    const char* name;
    size_t length_offset;  // of the length in a packet's header
    uint32_t read_size;
};
constexpr Kind kKinds[] = {{"glink_pkt_marlo_dfu", 8, 44},
                           {"glink_pkt_marlo_rma", 4, 40},
                           {"glink_pkt_marlo_custom_data", SIZE_MAX, 44}};

constexpr size_t kLargestPacket = size_t{16} * 1024 * 1024;
constexpr int kErrors[] = {EIO, EINTR, EBUSY, ENODEV, ENOMEM, EPIPE, EBADF, ECONNRESET};
constexpr uint32_t kOddLengths[] = {0,    1,       16,        17,         44,         45,
                                    4096, 0x10000, 0x1000001, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};

// What is scripted for the channel.
class Script {
  public:
    Script(fuzz::Input& input, const Kind& kind, std::string device)
        : input_(input), kind_(kind), device_(std::move(device)) {}

    // Each event comes with a read that it may announce: no reader is led to a read that nothing
    // ends. One that is told to try again does so at once and may take the read of an event.
    void extend() {
        uint32_t fillers = 0;
        for (uint32_t steps = input_.below(12); steps > 0; --steps) {
            fillers += add_step() ? 1 : 0;
        }
        for (; fillers > 0; --fillers) {
            add_read(scripted::failure(EIO));
        }
    }

    size_t items() const { return items_; }
    const Bytes& stream() const { return stream_; }

  private:
    // Whether it is a read that is tried again.
    bool add_step() {
        switch (input_.below(8)) {
            case 0:
                add_read(scripted::failure(EAGAIN));
                return true;
            case 1:
                add_read(scripted::failure(input_.pick(kErrors)));
                return false;
            case 2:
                ++items_;
                platform().script_poll_failure(input_.pick({EINTR, 0, ENOMEM}));
                return false;
            case 3:
                ++items_;
                platform().script_poll_events(
                    device_, input_.pick({short{POLLHUP}, short{POLLERR}, short{POLLIN | POLLHUP},
                                          short{POLLNVAL}, short{POLLPRI | POLLIN}}));
                add_data(input_.take(input_.below(64)));
                return false;
            case 4:
            case 5:
                add_data(input_.take(input_.below(100)));
                return false;
            default:
                add_packet();
                return false;
        }
    }

    // One with a header whose length says what is there, or something else; in parts.
    void add_packet() {
        const uint32_t body = input_.flip() ? input_.below(32) : 2 * input_.below(256);
        Bytes packet(16 + body, uint8_t{0x5A});
        const std::span<const uint8_t> contents = input_.take(input_.below(32));
        std::copy_n(contents.begin(), std::min(contents.size(), packet.size()), packet.begin());
        const uint32_t length =
            input_.flip() ? input_.pick(kOddLengths) : static_cast<uint32_t>(packet.size());
        for (size_t index = 0; index < 4 && kind_.length_offset < packet.size(); ++index) {
            packet[kind_.length_offset + index] = static_cast<uint8_t>(length >> (8 * index));
        }
        std::span<const uint8_t> rest = packet;
        for (uint32_t parts = input_.below(4); parts > 0; --parts) {
            const size_t size = std::min<size_t>(input_.below(64), rest.size());
            add_data(rest.first(size));
            rest = rest.subspan(size);
        }
        add_data(rest);
    }

    void add_data(std::span<const uint8_t> data) {
        scripted::Step step;
        step.data.assign(data.begin(), data.end());
        add_read(std::move(step));
    }

    // A step may be taken in as many reads as it has bytes.
    void add_read(scripted::Step step) {
        items_ += 1 + step.data.size();
        stream_.insert(stream_.end(), step.data.begin(), step.data.end());
        platform().script_read(device_, std::move(step));
    }

    fuzz::Input& input_;
    const Kind& kind_;
    const std::string device_;
    size_t items_ = 0;
    Bytes stream_;
};

// What the reader delivers, judged there.
class Judge {
  public:
    Judge(const Kind& kind, uint32_t read_size, const Script& script)
        : kind_(kind), read_size_(read_size), script_(script) {}

    void take(std::span<const uint8_t> packet) {
        const std::lock_guard lock(mutex_);
        must(!packet.empty() && packet.size() <= kLargestPacket, "a packet of %zu bytes",
             packet.size());
        const bool has_length =
            packet.size() >= kind_.length_offset && packet.size() - kind_.length_offset >= 4;
        must(packet.size() == read_size_ ||
                 (kind_.length_offset != SIZE_MAX &&
                  (!has_length || word_at(packet, kind_.length_offset) == packet.size())),
             "a packet of %zu bytes has another length", packet.size());
        ++packets_;
        must(packets_ <= script_.items(), "%zu packets", packets_);
        find(packet);
    }

  private:
    // In what was read, behind the packet before it; but for the zeros that fill a short one up.
    void find(std::span<const uint8_t> packet) {
        while (!packet.empty() && packet.back() == 0) {
            packet = packet.first(packet.size() - 1);
        }
        const Bytes& stream = script_.stream();
        const auto begin = stream.begin() + static_cast<ptrdiff_t>(found_);
        const auto place = std::search(begin, stream.end(), packet.begin(), packet.end());
        must(packet.empty() || place != stream.end(), "%zu bytes that were never read",
             packet.size());
        found_ = static_cast<size_t>(place - stream.begin()) + packet.size();
    }

    const Kind& kind_;
    const uint32_t read_size_;
    const Script& script_;
    std::mutex mutex_;
    size_t packets_ = 0;
    size_t found_ = 0;
};

class User {
  public:
    explicit User(fuzz::Input& input)
        : input_(input),
          kind_(kKinds[input.below(3)]),
          read_size_(input.flip() ? 1 + input.below(64) : kind_.read_size),
          device_(std::string("/dev/") + kind_.name),
          script_(input, kind_, device_),
          judge_(kind_, read_size_, script_) {
        platform().device(device_);
    }

    void run() {
        do {
            if (transport_ == nullptr) {
                make();
            }
            sends_on_error_ = input_.flip();
            deletes_on_error_ = input_.flip();
            script_.extend();
            connect();
            for (uint32_t steps = input_.below(4); steps > 0 && transport_ != nullptr; --steps) {
                step();
            }
            if (transport_ != nullptr) {
                disconnect();
            }
            check();
        } while (!input_.empty());
    }

  private:
    void make() {
        transport_ = std::make_unique<marlo_glink>(glink_conn_config{kind_.name, read_size_});
        transport_->register_cb(
            [this](uint8_t* data, uint32_t length) {
                judge_.take({data, length});
            },
            [this](glink_interface_error error) { take_error(error); });
    }

    // Does what the users of a channel do: asks again, or gives up.
    void take_error(glink_interface_error error) {
        ++errors_;
        if (error == GLINK_OPEN_FAILED) {
            must(!has_reader_, "a failed open while a reader runs");
            if (deletes_on_error_) {
                transport_.reset();
            }
        } else if (sends_on_error_) {
            ++sends_;
            Bytes request = fuzz::pattern(28);
            transport_->send_request(request.data(), 28);
        }
    }

    void connect() {
        if (input_.below(4) == 1) {
            const int error = input_.pick(kErrors);
            platform().fail_opens(device_, std::vector<int>(input_.below(8), error));
        }
        if (input_.below(16) == 1) {
            platform().fail_next_thread(EAGAIN);
        }
        const int result = transport_->connect_interface(true);
        must(result == 0 || result == -1, "connecting gives %d", result);
        if (result == 0 && !has_reader_) {
            has_reader_ = true;
            ++pipes_;
        }
        wait();
    }

    void wait() const {
        if (has_reader_) {
            platform().wait_until_idle();
        }
    }

    void step() {
        const uint32_t kind = input_.below(5);
        if (kind == 0) {
            connect();
            return;
        }
        if (kind == 1) {
            platform().hang_up(device_);
            wait();
            return;
        }
        send();
    }

    void send() {
        for (uint32_t writes = input_.below(4); writes > 0; --writes) {
            scripted::Step write;
            write.error = input_.pick({0, 0, EBUSY, EAGAIN, EIO, EPIPE, ENODEV});
            write.accepted = input_.below(32);
            platform().script_write(device_, write);
        }
        ++sends_;
        Bytes packet = fuzz::pattern(input_.below(100));
        const auto size = static_cast<unsigned>(packet.size());
        const int result = transport_->send_request(packet.data(), size);
        must(result <= static_cast<int>(size), "%d of %u bytes are written", result, size);
        wait();
    }

    void disconnect() {
        if (has_reader_ && input_.below(8) == 1) {
            platform().script_write("pipe:" + std::to_string(pipes_), scripted::failure(EIO));
        }
        if (input_.flip()) {
            transport_->disconnect_interface();
        } else {
            transport_.reset();
        }
        has_reader_ = false;
    }

    void check() {
        must(platform().open_descriptors() == 0, "%d descriptors are left open",
             platform().open_descriptors());
        must(fuzz::wakelocks_held() == 0, "%d references on the wakelock", fuzz::wakelocks_held());
        ++connections_;
        const size_t most = 2 * script_.items() + 16 * connections_;
        const auto passes = static_cast<size_t>(platform().poll_passes());
        must(passes <= most, "%zu polls for %zu items", passes, script_.items());
        must(errors_ <= most + sends_, "%zu errors are reported", errors_.load());
        must(fuzz::log_lines() <= 32 * most + 512 * (sends_ + 1), "%zu log lines",
             fuzz::log_lines());
    }

    fuzz::Input& input_;
    const Kind& kind_;
    const uint32_t read_size_;
    const std::string device_;
    Script script_;
    Judge judge_;
    std::unique_ptr<glink_interface> transport_;
    bool sends_on_error_ = false;
    bool deletes_on_error_ = false;
    bool has_reader_ = false;
    int pipes_ = 0;
    size_t connections_ = 0;
    std::atomic<size_t> errors_ = 0;
    std::atomic<size_t> sends_ = 0;
};

// The two threads take turns: on one processor they hand over several times as fast.
bool stay_on_one_processor() {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(sched_getcpu(), &processors);
    return sched_setaffinity(0, sizeof(processors), &processors) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    [[maybe_unused]] static const bool stays = stay_on_one_processor();
    fuzz::begin();
    fuzz::Input input(data, size);
    User(input).run();
    return 0;
}
