// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "comhandler/client_wakelock.h"
#include "daemon/marlo_deamon_log.h"
#include "glink/marlo_glink.h"
#include "platform/scripted/scripted_platform.h"

// A transport on a scripted channel, and what its callbacks were told.
class ChannelTest : public testing::Test {
  protected:
    using Bytes = scripted::Bytes;

    ChannelTest() : ChannelTest("glink_pkt_marlo_dfu", 44) {}
    ChannelTest(const char* name, uint32_t read_size)
        : name_(name), read_size_(read_size), device_(std::string("/dev/") + name) {
        scripted::reset_platform();
        marlo_deamon_log::set_level(marlo_deamon_log::log_level::verbose);
        // The process's wakelock opens its files once, whichever test is first: not here.
        client_wakelock::get_instance();
        scripted::platform().device(device_);
        make();
    }

    ~ChannelTest() override {
        transport_.reset();
        // Every reference taken was given back, and none was given back that had not been taken.
        EXPECT_EQ(scripted::platform().count("is larger than _accu_count"), 0u);
        EXPECT_EQ(scripted::platform().count("acquiring wakelock"),
                  scripted::platform().count("releasing wakelock"));
        EXPECT_EQ(scripted::platform().open_descriptors(), expected_open_descriptors_);
    }

    void make() {
        transport_ = std::make_unique<marlo_glink>(glink_conn_config{name_, read_size_});
        transport_->register_cb(
            [this](uint8_t* data, uint32_t length) {
                const std::lock_guard lock(mutex_);
                packets_.emplace_back(data, data + length);
            },
            [this](glink_interface_error error) {
                {
                    const std::lock_guard lock(mutex_);
                    errors_.push_back(error);
                }
                if (on_error_) {
                    on_error_(error);
                }
            });
    }

    int connect() { return transport_->connect_interface(true); }

    void arrives(Bytes packet) { scripted::platform().script_read(device_, {std::move(packet)}); }
    void read_fails(int error) {
        scripted::platform().script_read(device_, scripted::failure(error));
    }

    int send(Bytes packet) {
        return transport_->send_request(packet.data(), static_cast<unsigned int>(packet.size()));
    }

    std::vector<Bytes> packets() {
        scripted::platform().wait_until_idle();
        const std::lock_guard lock(mutex_);
        return packets_;
    }

    std::vector<glink_interface_error> errors() {
        const std::lock_guard lock(mutex_);
        return errors_;
    }

    const char* name_;
    uint32_t read_size_;
    const std::string device_;
    std::unique_ptr<marlo_glink> transport_;
    std::function<void(glink_interface_error)> on_error_;
    int expected_open_descriptors_ = 0;

  private:
    std::mutex mutex_;
    std::vector<Bytes> packets_;
    std::vector<glink_interface_error> errors_;
};
