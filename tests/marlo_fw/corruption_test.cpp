// SPDX-License-Identifier: Apache-2.0
// Thousands of damaged bundles: whatever is called clean, the daemon loads without a complaint, and
// erases and serves exactly what somebody reads in it who forgives nothing.
#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "fwupdater/marlo_fw_updater.h"
#include "tests/marlo_fw/damage.h"
#include "tests/marlo_fw/strict_bundle.h"
#include "tools/marlo_fw/inspect.h"
#include "tools/marlo_fw/run.h"

namespace marlo_fw::test {
namespace {

#ifdef NDEBUG
constexpr uint32_t kSeeds = 4000;
#else
constexpr uint32_t kSeeds = 1000;  // a sanitizer takes its time
#endif

using Message = std::vector<uint8_t>;

uint32_t word_at(const Message& message, size_t at) {
    uint32_t value = 0;
    for (size_t index = 4; index-- > 0;) value = value << 8 | message.at(at + index);
    return value;
}

// The daemon's updater by itself, and the last message that it has sent.
class Daemon {
  public:
    explicit Daemon(const Bundle& bundle) {
        aim_at(bundle);
        take_daemon_log();
        updater_.startMarloDownloaderWithCallback(nullptr);
        for (const LogLine& line : take_daemon_log()) {
            complains_ = complains_ || (line.is_error && !line.text.starts_with("ELFCLASS"));
        }
    }

    bool complains() const { return complains_; }

    std::vector<std::pair<uint32_t, uint32_t>> erasures() {
        std::vector<std::pair<uint32_t, uint32_t>> asked;
        updater_.eraseAllRAWPartitionAndContinueDownload();
        dfu_spcl_cmd_response done = {};
        while (word_at(last_, 16) == dfu::SPCL_OP_RAW_FLASH_ERASE) {
            asked.emplace_back(word_at(last_, 20), word_at(last_, 24));
            updater_.handleDFUSplCmdResposnse(&done);
        }
        return asked;
    }

    std::string image(uint32_t id) {
        updater_.sendmarloImageInfoRes(id);
        updater_.sendmarloImageOffsetRes(id, 0, word_at(last_, 20));
        return {last_.begin() + 28, last_.end()};
    }

    std::map<std::string, std::string> versions() {
        const marlo_meta_info info = updater_.readMarloMetaBuildInfo();
        return {{"apps_cochip", info.apps_cochip},
                {"dsp_cochip", info.dsp_cochip},
                {"btfw_cochip", info.btfw_cochip}};
    }

  private:
    class Channel : public glink_interface {
      public:
        explicit Channel(Message& last) : last_(last) {}
        int register_cb(glink_data_callback, glink_error_callback) override { return 0; }
        int send_request(unsigned char* buf, unsigned int len) override {
            last_.assign(buf, buf + len);
            return static_cast<int>(len);
        }
        int read_response(unsigned char*, unsigned int) override { return -1; }
        int connect_interface(bool) override { return 0; }
        void disconnect_interface() override {}

      private:
        Message& last_;
    };

    Message last_;
    bool complains_ = false;
    marlo_fw_updater updater_{
        [this](glink_conn_config) { return std::make_unique<Channel>(last_); }};
};

// What speaks against calling the bundle clean; empty where nothing does.
std::string objection(const Bundle& bundle) {
    StrictBundle strict;
    try {
        strict = read_strictly(bundle.directory);
    } catch (const NotStrict& reason) {
        return std::string("not strict: ") + reason.what();
    }
    Daemon daemon(bundle);
    if (daemon.complains()) return "the daemon complains";
    if (daemon.erasures() != strict.erasures) return "other erasures";
    for (uint32_t id = 0; id < 20; ++id) strict.images.try_emplace(id);
    for (const auto& [id, bytes] : strict.images) {
        if (daemon.image(id) != bytes) return "another image " + std::to_string(id);
    }
    return daemon.versions() == strict.versions ? "" : "other versions";
}

}  // namespace

TEST(Corruption, WhatIsCalledCleanIsReadAsWritten) {
    TestBundle directory;
    directory.write(kOutside, intact_files().at("apps.bin"));
    const Bundle bundle = directory.bundle();
    EXPECT_EQ(inspect(bundle).findings.total(), 0U);
    EXPECT_EQ(objection(bundle), "");
    uint32_t clean = 0;
    uint32_t strict_but_found = 0;
    for (uint32_t seed = 1; seed <= kSeeds; ++seed) {
        const Damaged damaged = damaged_bundle(seed);
        directory.become(damaged.files);
        for (const std::string& name : damaged.directories) {
            if (damaged.files.contains(name)) continue;  // made again since
            std::filesystem::create_directory(directory.directory() / name);
        }
        for (const auto& [name, target] : damaged.links) {
            const auto link = directory.directory() / name;
            if (!exists(symlink_status(link))) std::filesystem::create_symlink(target, link);
        }
        const bool is_clean = inspect(bundle).findings.total() == 0;
        const std::string against = objection(bundle);
        clean += is_clean ? 1 : 0;
        strict_but_found += !is_clean && against.empty() ? 1 : 0;
        EXPECT_FALSE(is_clean && !against.empty())
            << "seed " << seed << ": " << damaged.story << against;
    }
    // The damage is neither so slight nor so great that the comparison would say nothing.
    EXPECT_GT(clean, kSeeds / 20);
    EXPECT_LT(clean, kSeeds / 2);
    EXPECT_LT(strict_but_found, kSeeds / 50) << "findings where nothing is left to doubt";
    RecordProperty("clean", static_cast<int>(clean));
}

}  // namespace marlo_fw::test
