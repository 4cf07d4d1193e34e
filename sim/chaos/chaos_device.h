// SPDX-License-Identifier: Apache-2.0
// A co-processor out of order, as the daemon sees it: a well-behaved one, whose channels are
// replaced and whose control device tells lies. It can be made to behave from some moment on.
#pragma once

#include <array>
#include <memory>

#include "sim/chaos/chaos_dfu.h"
#include "sim/chaos/chaos_misc.h"
#include "sim/chaos/chaos_rma.h"
#include "sim/coprocessor.h"

namespace sim {

struct ChaosSetup {
    uint64_t seed;
    Behaviour behaviour;  // of the well-behaved one beneath
    FirmwareBundle firmware;
    MiscFiles misc_data;
    bool huge_partitions;  // see ChaosRma
};

class ChaosDevice : public Device {
  public:
    ChaosDevice(ChaosSetup setup, Observer& observer);
    ~ChaosDevice() override;

    void set_time(Time now) override;
    std::optional<Time> next_deadline() const override;
    int open_control() override;
    int ioctl(uint32_t request, std::span<uint8_t> block, UserMemory& memory) override;
    int open_channel(Channel channel) override;
    void close_channel(Channel channel) override;
    int receive(Channel channel, std::span<const uint8_t> packet) override;
    bool readable(Channel channel) const override;
    bool hung_up(Channel channel) const override;
    Bytes take_packet(Channel channel) override;
    std::optional<int> read_error(Channel channel) override;
    unsigned odd_events(Channel channel) const override;
    void polled(Channel channel) override;
    void host_reads(Channel channel, size_t size, std::span<const uint8_t> bytes) override;
    std::string remoteproc_state() const override { return model_->remoteproc_state(); }
    void write_wake_lock(std::string_view name) override { model_->write_wake_lock(name); }
    void write_wake_unlock(std::string_view name) override { model_->write_wake_unlock(name); }

    // What goes wrong:
    void set_noise(uint32_t percent) { context_.noise = percent; }
    void set_trouble(Channel channel, const ChannelTrouble& trouble) {
        find(channel).set_trouble(trouble);
    }
    void hang_up(Channel channel) { find(channel).hang_up(); }
    void restart(std::optional<Time> length);  // as Coprocessor::restart_announced
    void fail_controls(uint32_t count) { failing_controls_ = count; }
    void fail_control_opens(uint32_t count, int error);

    // A daemon begins, with a co-processor that has just been switched on.
    void new_host();
    // From now on all is in order. This co-processor takes over the channels that are open; if so,
    // it has to restart at once, which it announces.
    void behave(Behaviour behaviour, bool restarts);

    const Coprocessor& model() const { return *model_; }
    ChaosContext& context() { return context_; }
    bool is_open(Channel channel) const { return find(channel).is_open(); }
    bool any_open() const;
    bool in_download() const { return dfu_.in_download(); }
    bool version_told() const { return version_told_; }  // to this host
    const BackingFiles& backing_files() const { return rma_.files(); }
    // Nothing that it has said is unread or unanswered.
    bool settled() const { return dfu_.quiet() && rma_.quiet(); }
    // All that it had to say has been said, and what was to go wrong on the channel has.
    bool done(Channel channel) const {
        return context_.requests_due == 0 && settled() && !find(channel).expects_looks();
    }
    // The first failed check so far; empty: none.
    std::string failure() const;
    // The answer that is overdue; empty: none.
    std::string overdue(Time now);

  private:
    ChaosChannel& find(Channel channel);
    const ChaosChannel& find(Channel channel) const;
    void hang_up_all();
    int odd_result(const struct ControlRequest& request, std::span<uint8_t> block,
                   UserMemory& memory);

    ChaosSetup setup_;
    Observer& observer_;
    Reporter reporter_;
    ChaosContext context_;
    std::unique_ptr<Coprocessor> model_;
    ChaosDfu dfu_;
    ChaosMisc misc_;
    ChaosRma rma_;
    bool behaves_ = false;
    bool version_told_ = false;
    uint32_t failing_controls_ = 0;
    uint32_t failing_control_opens_ = 0;
    int control_open_error_ = 0;
};

}  // namespace sim
