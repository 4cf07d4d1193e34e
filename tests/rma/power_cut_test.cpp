// SPDX-License-Identifier: Apache-2.0
// The power is cut after each change of a file that the service makes. Whatever a new service then
// finds: each partition is whole or not there, and each acknowledged block is in it.
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

// A service that has just started among these files.
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
        start();
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
    }

    std::vector<Bytes> partitions;
    std::array<bool, kPartitions> exists = {};
};

class PowerCut : public testing::Test {
  protected:
    PowerCut() { marlo_deamon_log::set_level(marlo_deamon_log::log_level::none); }
    ~PowerCut() override { marlo_deamon_log::set_level(marlo_deamon_log::log_level::verbose); }

    uint32_t draw(uint32_t limit) { return static_cast<uint32_t>(random_()) % limit; }
    void record();
    void cut_each_change();
    void cut(const Disk& disk, const Memory& memory, const Request* under_way);

    std::mt19937 random_;
    Service::Files files_;  // at the beginning of a life
    Memory memory_;
    std::vector<Request> requests_;
    std::vector<DiskChange> changes_;
    size_t settled_ = 0;  // the changes that only put files_ there
    int cuts_ = 0;
    // The beginning of the next life, drawn from the cuts of this one.
    Service::Files next_files_;
    Memory next_memory_;
    uint32_t cuts_in_life_ = 0;
};

void PowerCut::record() {
    changes_.clear();
    requests_.assign(kRequestsPerLife, {});
    uint32_t left_to_live = 0;  // changes of a file, until the service is killed; 0: it is not
    Service service(files_, [&](const DiskChange& change) {
        changes_.push_back(change);
        if (left_to_live > 0 && --left_to_live == 0) {
            throw Killed();
        }
    });
    settled_ = changes_.size();
    for (Request& request : requests_) {
        const bool connects =
            &request == &requests_.front() || draw(8) == 0 || (&request - 1)->answered == SIZE_MAX;
        request.id = connects ? draw(kPartitions) : (&request - 1)->id;
        request.begin = changes_.size();
        service.on_answer = [&] { request.answered = std::min(request.answered, changes_.size()); };
        if (connects) {
            left_to_live = draw(6);
            try {
                service.connect(request.id);
            } catch (const Killed&) {
                service.start();
            }
            left_to_live = 0;
            continue;
        }
        const uint32_t size = kPartitionSizes[request.id];
        request.offset = draw(size);
        request.block.resize(1 + draw(std::min(kMaximumWrite, size - request.offset)));
        std::generate(request.block.begin(), request.block.end(),
                      [this] { return static_cast<uint8_t>(draw(256)); });
        if (draw(4) == 0) {  // it takes two calls
            platform().script_write(path_of(request.id), {.data = {}, .accepted = 1 + draw(600)});
        }
        const Bytes& answer =
            service.ask(rma::DATA_WRITE,
                        {request.id, request.id, request.offset, uint32_t(request.block.size()), 0},
                        request.block);
        ASSERT_EQ(word(answer, 28), rma::DONE);
    }
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
        for (size_t done = request.begin; done < end; ++done) {
            disk.apply(changes_[done]);
            const bool is_answered = done + 1 >= request.answered;
            if (is_answered) {
                memory_.acknowledge(request);
            }
            for (int left = request.block.empty() ? kCutsInCreation : 1; left > 0; --left) {
                ASSERT_NO_FATAL_FAILURE(cut(disk, memory_, is_answered ? nullptr : &request))
                    << "request " << index << " of this life, change " << done + 1 - request.begin;
            }
        }
        if (request.answered != SIZE_MAX) {
            memory_.acknowledge(request);
        }
    }
}

void PowerCut::cut(const Disk& disk, const Memory& memory, const Request* under_way) {
    ++cuts_;
    const Service::Files files = disk.after_power_cut(random_);
    Service restarted(files);
    Memory found = memory;
    size_t partitions_found = files.count(kUnfinished);
    for (uint32_t id = 0; id < kPartitions; ++id) {
        const auto file = files.find(path_of(id));
        if (file != files.end()) {
            ++partitions_found;
            found.exists[id] = true;
            ASSERT_EQ(file->second.size(), kPartitionSizes[id]) << "the length of " << file->first;
        }
        ASSERT_EQ(memory.exists[id] && file == files.end(), false) << path_of(id) << " is lost";
        found.partitions[id] = restarted.read_all(id);
        Bytes expected = memory.partitions[id];
        ASSERT_EQ(found.partitions[id].size(), expected.size()) << path_of(id);
        if (under_way != nullptr && under_way->id == id) {
            // As far as it got; nobody counts on it yet.
            for (size_t at = 0; at < under_way->block.size(); ++at) {
                const uint8_t now = found.partitions[id][under_way->offset + at];
                uint8_t& before = expected[under_way->offset + at];
                before = now == under_way->block[at] ? now : before;
            }
        }
        ASSERT_TRUE(found.partitions[id] == expected) << "the bytes of " << path_of(id);
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
            record();
            ASSERT_NO_FATAL_FAILURE(cut_each_change()) << "seed " << seed << ", life " << life;
            files_ = next_files_;
            memory_ = next_memory_;
        }
    }
    EXPECT_GE(cuts_, kSeeds * 3000);
    std::cout << cuts_ << " power cuts in " << kSeeds * kLives * kRequestsPerLife << " requests\n";
}

}  // namespace
