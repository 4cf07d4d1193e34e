// SPDX-License-Identifier: Apache-2.0
// The power is cut after each change of a file that the service makes, while a sync fails now and
// then. Whatever a new service then finds: each partition is whole or not there, and each
// acknowledged block is in it.
#include <algorithm>
#include <iostream>
#include <map>
#include <random>

#include "daemon/marlo_deamon_log.h"
#include "tests/rma/rma_fixture.h"

using scripted::Disk;
using scripted::DiskChange;
using scripted::platform;

namespace {

constexpr int kSeeds = POWER_CUT_SEEDS;
constexpr int kLives = 10;  // a life begins with what a cut has left of the one before
constexpr int kRequestsPerLife = 100;
constexpr uint32_t kPartitionSizes[] = {1, 511, 512, 513, 1537, 3000};
constexpr uint32_t kPartitions = std::size(kPartitionSizes);
constexpr uint32_t kMaximumWrite = 1200;
// A creation is rarer than a write, and more can be left of it.
constexpr int kCutsInCreation = 8;

struct Killed {};

// Takes down the last answer, and when it left.
class Host : public glink_interface {
  public:
    Host(Bytes& answer, const std::function<void()>& on_answer)
        : answer_(answer), on_answer_(on_answer) {}
    int register_cb(glink_data_callback, glink_error_callback) override { return 0; }
    int send_request(unsigned char* buf, unsigned int len) override {
        answer_.assign(buf, buf + len);
        on_answer_();
        return static_cast<int>(len);
    }
    int read_response(unsigned char*, unsigned int) override { return -1; }
    int connect_interface(bool) override { return 0; }
    void disconnect_interface() override {}

  private:
    Bytes& answer_;
    const std::function<void()>& on_answer_;
};

// A service among these files, once it is started.
class Service {
  public:
    using Files = std::map<std::string, Bytes>;

    explicit Service(const Files& files, scripted::DiskObserver observer = {}) {
        scripted::reset_platform();
        platform().directory(kDirectory, {});
        platform().on_disk_change(std::move(observer));
        for (const auto& [path, contents] : files) {
            platform().file(path, std::string(contents.begin(), contents.end()));
        }
    }
    // In the place of one that was killed, if any.
    void start() {
        rma_ = std::make_unique<marlo_rma>(
            [this](glink_conn_config) { return std::make_unique<Host>(answer_, on_answer); });
        rma_->startMarloRmaConnection();
    }
    const Bytes& ask(uint32_t command, const std::vector<uint32_t>& words,
                     const Bytes& block = {}) {
        const Bytes request = message(command, words, block);
        rma_->rma_conn_res_event_cb(request.data(), static_cast<uint32_t>(request.size()));
        return answer_;
    }
    void connect(uint32_t id) { ask(rma::CONNECT, {0, id, 0, kPartitionSizes[id], 0, 0, 0}); }
    Bytes read_all(uint32_t id) {
        connect(id);
        const Bytes& answer = ask(rma::DATA_READ, {id, id, 0, kPartitionSizes[id]});
        return {answer.begin() + 32, answer.end()};
    }

    std::function<void()> on_answer = [] {};

  private:
    Bytes answer_;
    std::unique_ptr<marlo_rma> rma_;
};

std::string path_of(uint32_t id) {
    return kDirectory + std::to_string(id) + "0" + std::to_string(id);
}

// What the co-processor asked for, and which of the recorded changes came before, and before the
// answer.
struct Request {
    uint32_t id = 0;
    uint32_t offset = 0;
    Bytes block = {};  // empty: CONNECT
    size_t begin = 0;
    size_t answered = SIZE_MAX;
    bool has_failed = false;
};

// What the co-processor may count on.
struct Memory {
    Memory() {
        for (const uint32_t size : kPartitionSizes) {
            partitions.emplace_back(size, 0);
        }
    }
    void acknowledge(const Request& request) {
        exists[request.id] = true;
        std::copy(request.block.begin(), request.block.end(),
                  partitions[request.id].begin() + request.offset);
        for (Write& write : unconfirmed) {
            std::erase_if(write.bytes, [&](const auto& byte) {
                return write.id == request.id && byte.first >= request.offset &&
                       byte.first < request.offset + request.block.size();
            });
        }
        std::erase_if(unconfirmed, [](const Write& write) { return write.bytes.empty(); });
    }
    // Each byte of the block may be there from now on, or not.
    void begin(const Request& request) {
        Write& write = unconfirmed.emplace_back(Write{request.id, {}});
        for (uint32_t at = 0; at < request.block.size(); ++at) {
            write.bytes.emplace_back(request.offset + at, request.block[at]);
        }
    }
    // Whether a restart may find these bytes.
    bool allows(uint32_t id, const Bytes& found) const {
        Bytes expected = partitions[id];
        for (const Write& write : unconfirmed) {
            for (const auto& [at, byte] : write.bytes) {
                if (write.id == id && found.at(at) == byte) {
                    expected[at] = byte;
                }
            }
        }
        return found == expected;
    }

    struct Write {
        uint32_t id;
        std::vector<std::pair<uint32_t, uint8_t>> bytes;  // each with its place
    };
    std::vector<Bytes> partitions;
    std::array<bool, kPartitions> exists = {};
    std::vector<Write> unconfirmed;
};

class PowerCut : public testing::Test {
  protected:
    PowerCut() { marlo_deamon_log::set_level(marlo_deamon_log::log_level::none); }
    ~PowerCut() override { marlo_deamon_log::set_level(marlo_deamon_log::log_level::verbose); }

    uint32_t draw(uint32_t limit) { return static_cast<uint32_t>(random_()) % limit; }
    void record();
    void connect(Service& service, Request& request);
    void write(Service& service, Request& request);
    void cut_each_change();
    void cut(const Disk& disk);

    std::mt19937 random_;
    Service::Files files_;  // at the beginning of a life
    Memory memory_;
    std::vector<Request> requests_;
    std::vector<DiskChange> changes_;
    size_t settled_ = 0;         // the changes that only put files_ there
    uint32_t left_to_live_ = 0;  // changes of a file, until the service is killed; 0: it is not
    int cuts_ = 0;
    // The beginning of the next life, drawn from the cuts of this one.
    Service::Files next_files_;
    Memory next_memory_;
    uint32_t cuts_in_life_ = 0;
};

void PowerCut::record() {
    changes_.clear();
    requests_.assign(kRequestsPerLife, {});
    Service service(files_, [this](const DiskChange& change) {
        changes_.push_back(change);
        if (left_to_live_ > 0 && --left_to_live_ == 0) {
            throw Killed();
        }
    });
    settled_ = changes_.size();
    service.start();
    bool was_killed = false;
    for (Request& request : requests_) {
        const bool is_first = &request == &requests_.front();
        const bool connects = is_first || was_killed || draw(8) == 0;
        const bool stays = !connects || (was_killed && draw(2) == 0);
        request.id = stays ? (&request - 1)->id : draw(kPartitions);
        request.begin = is_first ? settled_ : changes_.size();
        service.on_answer = [&] { request.answered = std::min(request.answered, changes_.size()); };
        if (draw(was_killed ? 2 : 16) == 0) {
            const std::string syncs[] = {"fsync " + std::string(kDirectory),
                                         "fsync " + std::string(kUnfinished),
                                         "fdatasync " + path_of(request.id)};
            platform().fail_call(syncs[draw(std::size(syncs))], EIO);
        }
        connects ? connect(service, request) : write(service, request);
        was_killed = request.answered == SIZE_MAX;
    }
}

void PowerCut::connect(Service& service, Request& request) {
    const size_t failures = platform().failures();
    left_to_live_ = draw(6);
    try {
        service.connect(request.id);
    } catch (const Killed&) {
        service.start();
    }
    left_to_live_ = 0;
    request.has_failed = platform().failures() > failures;  // the answer does not say so
}

void PowerCut::write(Service& service, Request& request) {
    const uint32_t size = kPartitionSizes[request.id];
    request.offset = draw(size);
    request.block.resize(1 + draw(std::min(kMaximumWrite, size - request.offset)));
    std::generate(request.block.begin(), request.block.end(),
                  [this] { return static_cast<uint8_t>(draw(256)); });
    const bool has_partition = platform().contents(path_of(request.id)).has_value();
    if (has_partition && draw(4) == 0) {  // it takes two calls
        platform().script_write(path_of(request.id), {.data = {}, .accepted = 1 + draw(600)});
    }
    const size_t failures = platform().failures();
    const Bytes& answer = service.ask(
        rma::DATA_WRITE,
        {request.id, request.id, request.offset, uint32_t(request.block.size()), 0}, request.block);
    const bool may_fail = !has_partition || platform().failures() > failures;
    request.has_failed = word(answer, 28) != rma::DONE;
    ASSERT_TRUE(may_fail || !request.has_failed);
}

void PowerCut::cut_each_change() {
    Disk disk("/data/vendor/aon");
    for (size_t index = 0; index < settled_; ++index) {
        disk.apply(changes_[index]);
    }
    disk.settle();
    for (size_t index = 0; index < requests_.size(); ++index) {
        const Request& request = requests_[index];
        const bool is_last = index + 1 == requests_.size();
        const size_t end = is_last ? changes_.size() : requests_[index + 1].begin;
        const bool counts = request.answered != SIZE_MAX && !request.has_failed;
        memory_.begin(request);
        for (size_t done = request.begin; done < end; ++done) {
            disk.apply(changes_[done]);
            if (counts && done + 1 >= request.answered) {
                memory_.acknowledge(request);
            }
            for (int left = request.block.empty() ? kCutsInCreation : 1; left > 0; --left) {
                ASSERT_NO_FATAL_FAILURE(cut(disk))
                    << "request " << index << " of this life, change " << done + 1 - request.begin;
            }
        }
        if (counts) {
            memory_.acknowledge(request);
        }
    }
}

void PowerCut::cut(const Disk& disk) {
    ++cuts_;
    const Service::Files files = disk.after_power_cut(random_);
    Service restarted(files);
    restarted.start();
    Memory found;
    size_t partitions_found = files.count(kUnfinished);
    for (uint32_t id = 0; id < kPartitions; ++id) {
        const auto file = files.find(path_of(id));
        found.exists[id] = file != files.end();
        ASSERT_TRUE(found.exists[id] || !memory_.exists[id]) << path_of(id) << " is lost";
        if (found.exists[id]) {
            ++partitions_found;
            ASSERT_EQ(file->second.size(), kPartitionSizes[id]) << "the length of " << file->first;
        }
        found.partitions[id] = restarted.read_all(id);
        ASSERT_EQ(found.partitions[id].size(), kPartitionSizes[id]) << path_of(id);
        ASSERT_TRUE(memory_.allows(id, found.partitions[id])) << "the bytes of " << path_of(id);
    }
    ASSERT_EQ(partitions_found, files.size()) << "a file that is no partition";
    if (draw(++cuts_in_life_) == 0) {
        next_files_ = files;
        next_memory_ = found;
    }
}

TEST_F(PowerCut, LosesNothingThatWasAcknowledged) {
    for (uint32_t seed = 1; seed <= kSeeds; ++seed) {
        random_.seed(seed);
        files_ = {};
        memory_ = {};
        for (int life = 0; life < kLives; ++life) {
            cuts_in_life_ = 0;
            ASSERT_NO_FATAL_FAILURE(record());
            ASSERT_NO_FATAL_FAILURE(cut_each_change()) << "seed " << seed << ", life " << life;
            files_ = next_files_;
            memory_ = next_memory_;
        }
    }
    EXPECT_GE(cuts_, kSeeds * 3000);
    std::cout << cuts_ << " power cuts in " << kSeeds * kLives * kRequestsPerLife << " requests\n";
}

}  // namespace
