// SPDX-License-Identifier: Apache-2.0
// The receive path of the memory service: requests, whole and damaged, while files and the
// transport fail. What each must lead to is worked out a second time, in Model: only a call that
// has failed excuses a request that is not served.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <set>

#include "fuzz/harness.h"
#include "rma/marlo_rma.h"

using fuzz::Bytes;
using fuzz::must;
using fuzz::platform;
using fuzz::word_at;

namespace {

constexpr const char* kDirectory = "/data/vendor/aon/";
constexpr const char* kUnfinished = "/data/vendor/aon/unfinished";

constexpr uint32_t kConnect = 0;
constexpr uint32_t kDisconnect = 2;
constexpr uint32_t kRead = 256;
constexpr uint32_t kWrite = 512;

// The co-processor chooses the size; here partitions are small.
constexpr uint32_t kLargestPartition = 8192;
constexpr uint32_t kLargestBlock = 16 * 1024 * 1024;  // more is never read at once

constexpr int kErrors[] = {EIO, ENOSPC, EINTR, ENOMEM, EACCES, EROFS, EINVAL, ENOENT};

std::string path_of(uint32_t first, uint32_t second, uint32_t third) {
    return kDirectory + std::to_string(first) + std::to_string(second) + std::to_string(third);
}

Bytes in_bytes(std::initializer_list<uint32_t> words) {
    Bytes bytes;
    for (const uint32_t word : words) {
        fuzz::append_word(bytes, word);
    }
    return bytes;
}

// The files as the co-processor may count on them, and what is answered.
class Model {
  public:
    // Before the request is received.
    void expect(std::span<const uint8_t> request) {
        request_.assign(request.begin(), request.end());
        answers_ = 0;
        answer_.clear();
        failures_before_ = platform().failures();
        if (is(kConnect)) {
            memory_id_ = word_at(request_, 16);
            second_id_ = word_at(request_, 20);
            client_private_ = word_at(request_, 36);
        }
    }

    void take_answer(std::span<const uint8_t> answer) {
        must(++answers_ == 1, "a request is answered twice");
        must(answer.size() >= 12, "an answer of %zu bytes", answer.size());
        must(word_at(answer, 0) == fuzz::crc_of({answer.subspan(4)}), "wrong CRC in an answer");
        must(word_at(answer, 4) == answer.size(), "an answer of %zu bytes says %u", answer.size(),
             word_at(answer, 4));
        must(word_at(answer, 8) == word_at(request_, 8) + 1, "request %u is answered with %u",
             word_at(request_, 8), word_at(answer, 8));
        answer_.assign(answer.begin() + 12, answer.end());
    }

    void check() {
        const bool is_known = is(kConnect) || is(kDisconnect) || is(kRead) || is(kWrite);
        must(answers_ == (is_known && is_connected ? 1 : 0), "request %u: %d answers",
             word_at(request_, 8), answers_);
        if (is(kConnect)) {
            adopt_partition();
        } else if (is(kWrite)) {
            adopt_block();
        }
        if (answers_ == 1) {
            check_answer();
        }
        check_files();
    }

    // Something has this name that is no partition.
    void occupy(const std::string& path, unsigned int mode) {
        if (!files_.contains(path)) {
            platform().file_mode(path, mode);
            occupied_.insert(path);
        }
    }
    bool is_connected = false;
    bool may_leave_unfinished = false;  // it could not be removed

  private:
    bool is(uint32_t command) const {
        return request_.size() >= 12 && word_at(request_, 8) == command;
    }

    void check_answer() {
        if (is(kConnect)) {
            must(answer_ == in_bytes({client_private_, 0, memory_id_, 3, 4096, 4096}),
                 "another answer to CONNECT");
        } else if (is(kDisconnect)) {
            must(answer_ == in_bytes({memory_id_, client_private_, word_at(request_, 16), 0}),
                 "another answer to DISCONNECT");
        } else if (is(kRead)) {
            check_read();
        }
    }

    // Whether a call of this request has failed.
    bool is_excused() const { return platform().failures() != failures_before_; }

    std::string partition() const { return path_of(memory_id_, second_id_, memory_id_); }

    // A whole CONNECT makes a file of zeros, unless something has that name.
    void adopt_partition() {
        if (files_.contains(partition()) || occupied_.contains(partition())) {
            return;
        }
        const bool is_whole = request_.size() >= 40;
        const auto contents = platform().contents(partition());
        if (!contents) {
            must(!is_whole || is_excused(), "no file for a CONNECT of %zu bytes", request_.size());
            return;
        }
        must(is_whole, "a file for a CONNECT of %zu bytes", request_.size());
        must(contents->size() == word_at(request_, 24), "a file of %zu bytes, not %u",
             contents->size(), word_at(request_, 24));
        must(fuzz::all_zero(*contents), "a new partition is not zero");
        files_[partition()] = *contents;
    }

    void check_block_answer(uint32_t result) const {
        must(answer_.size() >= 20, "an answer with %zu bytes of fields", answer_.size());
        const Bytes fields(answer_.begin(), answer_.begin() + 20);
        must(fields == in_bytes({word_at(request_, 12), client_private_, word_at(request_, 16),
                                 word_at(request_, 24), result}),
             "another answer about a block");
    }

    void check_read() {
        check_block_answer(0);
        const Bytes block(answer_.begin() + 20, answer_.end());
        const uint32_t offset = word_at(request_, 20);
        const uint32_t size = word_at(request_, 24);
        if (!files_.contains(partition()) || size > kLargestBlock) {
            must(block.empty(), "%zu bytes are read, %u were asked for", block.size(), size);
            return;
        }
        if (block.empty() && is_excused()) {
            return;
        }
        must(block.size() == size, "a block of %u bytes has %zu", size, block.size());
        const Bytes& file = files_[partition()];
        const size_t inside =
            offset < file.size() ? std::min(block.size(), file.size() - offset) : 0;
        must(std::equal(block.begin(), block.begin() + static_cast<ptrdiff_t>(inside),
                        file.begin() + static_cast<ptrdiff_t>(inside == 0 ? 0 : offset)),
             "%zu bytes at %u are read wrong", inside, offset);
        must(fuzz::all_zero(std::span(block).subspan(inside)), "behind the end is not zero");
    }

    // A block that is not confirmed may be there in part.
    void adopt_block() {
        const std::string path = path_of(memory_id_, second_id_, word_at(request_, 12));
        const size_t offset = word_at(request_, 20);
        const size_t size = word_at(request_, 24);
        const bool is_inside = request_.size() >= 32 && size <= request_.size() - 32 &&
                               files_.contains(path) && offset + size <= files_[path].size();
        const bool is_confirmed = answers_ == 1 && word_at(answer_, 16) == 0;
        if (answers_ == 1) {
            check_block_answer(is_confirmed ? 0 : 1);
            must(is_confirmed || !is_inside || is_excused(), "%zu bytes at %zu of %s are refused",
                 size, offset, path.c_str());
        }
        must(is_inside || !is_confirmed, "%zu bytes at %zu of %s are confirmed", size, offset,
             path.c_str());
        if (is_inside) {
            const Bytes now = platform().contents(path).value_or(Bytes());
            must(now.size() == files_[path].size(), "%s has %zu bytes now", path.c_str(),
                 now.size());
            const auto written = is_confirmed || !is_excused()
                                     ? request_.begin() + 32
                                     : now.begin() + static_cast<ptrdiff_t>(offset);
            std::copy_n(written, size, files_[path].begin() + static_cast<ptrdiff_t>(offset));
        }
    }

    void check_files() const {
        for (const std::string& path : platform().files_below("/")) {
            must(files_.contains(path) || (path == kUnfinished && may_leave_unfinished),
                 "%s is no partition", path.c_str());
        }
        for (const auto& [path, contents] : files_) {
            must(platform().contents(path) == contents, "%s is not what it was written",
                 path.c_str());
        }
        must(platform().open_descriptors() == 0, "a file is left open");
    }

    std::map<std::string, Bytes> files_;
    std::set<std::string> occupied_;
    Bytes request_;
    size_t failures_before_ = 0;
    Bytes answer_;  // its payload
    int answers_ = 0;
    uint32_t memory_id_ = 0;
    uint32_t second_id_ = 0;
    uint32_t client_private_ = 0;
};

struct Script {
    bool opens = true;
    std::optional<int> result;  // of the next send
};

class Channel : public glink_interface {
  public:
    Channel(Model& model, Script& script) : model_(model), script_(script) {
        model_.is_connected = true;
    }
    ~Channel() override { model_.is_connected = false; }

    int register_cb(glink_data_callback, glink_error_callback err_cb) override {
        error_cb_ = std::move(err_cb);
        return 0;
    }
    int send_request(unsigned char* buf, unsigned int len) override {
        model_.take_answer({buf, len});
        const int result = script_.result.value_or(static_cast<int>(len));
        script_.result.reset();
        if (result < 0) {
            error_cb_(GLINK_IO_ERROR);
        }
        return result;
    }
    int read_response(unsigned char*, unsigned int) override { return -1; }
    int connect_interface(bool) override {
        if (script_.opens) {
            return 0;
        }
        const glink_error_callback error_cb = error_cb_;
        error_cb(GLINK_OPEN_FAILED);  // deletes this object
        return -1;
    }
    void disconnect_interface() override {}

  private:
    Model& model_;
    Script& script_;
    glink_error_callback error_cb_;
};

class Service {
  public:
    explicit Service(fuzz::Input& input) : input_(input) {
        platform().directory(kDirectory, {});
        rma_.startMarloRmaConnection();
    }

    void run() {
        for (size_t steps = 1; !input_.empty(); ++steps) {
            step();
            must(fuzz::log_lines() <= 16 * (steps + 1), "%zu log lines", fuzz::log_lines());
        }
    }

  private:
    void step() {
        switch (input_.below(16)) {
            case 0:
                fail_call();
                break;
            case 1:
                fail_write();
                break;
            case 2: {
                const int error = input_.pick(kErrors);
                platform().fail_opens(any_path(), {error});
                break;
            }
            case 3: {
                const unsigned int mode = input_.pick({S_IFIFO | 0600U, S_IFDIR | 0700U});
                model_.occupy(small_path(), mode);
                break;
            }
            case 4:
                rma_.rma_conn_error_cb(input_.pick({GLINK_IO_ERROR, GLINK_SSR}));
                break;
            case 5:
                script_.opens = !input_.flip();
                rma_.startMarloRmaConnection();
                break;
            case 6:
                fail_read();
                break;
            case 7:
                script_.result = input_.pick({0, 1, -EIO, -EBUSY});
                break;
            case 8:
                receive(input_.take(input_.below(72)));
                break;
            default:
                receive_request();
        }
    }

    std::string small_path() {
        const uint32_t first = input_.below(3);
        const uint32_t second = input_.below(3);
        return path_of(first, second, input_.below(3));
    }

    std::string any_path() {
        const uint32_t kind = input_.below(4);
        return kind == 0 ? kUnfinished : kind == 1 ? kDirectory : small_path();
    }

    void fail_call() {
        const int error = input_.pick(kErrors);
        const std::string path = small_path();
        const std::string call = input_.pick({"fsync", "fdatasync", "rename", "unlink"});
        if (call == "rename") {
            platform().fail_call(call + " " + kUnfinished + " " + path, error);
            return;
        }
        const std::string named = call == "fdatasync" ? path : any_path();
        platform().fail_call(call + " " + named, error);
        model_.may_leave_unfinished |= call == "unlink" && named == kUnfinished;
    }

    // Fails, or takes a few of the bytes, perhaps none.
    void fail_write() {
        scripted::Step step;
        step.error = input_.flip() ? input_.pick(kErrors) : 0;
        step.accepted = input_.below(64);
        platform().script_write(any_path(), step);
    }

    // Fails, or brings nothing of what is there.
    void fail_read() {
        const int error = input_.flip() ? input_.pick(kErrors) : 0;
        platform().script_read(small_path(), scripted::failure(error));
    }

    // Ids and sizes are small, so that requests meet each other's partitions.
    void receive_request() {
        const uint32_t command = input_.pick(
            {kConnect, kWrite, kRead, kWrite, kRead, kDisconnect, kConnect, 1U, 257U, 513U});
        const uint32_t third = input_.below(3);
        const uint32_t first = input_.below(3);
        const uint32_t second = command == kConnect ? input_.below(3) : large_or_small();
        const uint32_t size = command == kConnect ? input_.below(256) : large_or_small();
        Bytes message = in_bytes({0, 0, command, third, first, second, size, 0});
        const std::span<const uint8_t> block =
            input_.take(command == kConnect ? 8 : input_.below(256));
        message.insert(message.end(), block.begin(), block.end());
        if (command == kConnect && !input_.flip()) {
            message.resize(40);
        }
        receive(message);
    }

    uint32_t large_or_small() { return input_.below(8) == 0 ? input_.word() : input_.below(256); }

    void receive(std::span<const uint8_t> packet) {
        Bytes message(packet.begin(), packet.end());
        if (message.size() >= 28 && word_at(message, 8) == kConnect) {
            const Bytes size = in_bytes({word_at(message, 24) % kLargestPartition});
            std::copy(size.begin(), size.end(), message.begin() + 24);
        }
        fuzz::ExactCopy copy(message);
        model_.expect(message);
        rma_.rma_conn_res_event_cb(copy.data(), copy.size());
        model_.check();
    }

    fuzz::Input& input_;
    Model model_;
    Script script_;
    marlo_rma rma_{
        [this](glink_conn_config) { return std::make_unique<Channel>(model_, script_); }};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::begin();
    fuzz::Input input(data, size);
    Service(input).run();
    return 0;
}
