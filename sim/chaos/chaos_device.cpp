// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/chaos_device.h"

#include <cerrno>
#include <utility>

#include "sim/channel_names.h"
#include "sim/control_request.h"

namespace sim {
namespace {

constexpr Time kRestartInOrder = std::chrono::milliseconds(300);

constexpr int kOddModes[] = {7, 2, -EIO};
constexpr int kErrors[] = {-EIO, -EBUSY};
constexpr int kOddResults[] = {-EIO, -EBUSY, 5};

}  // namespace

ChaosDevice::ChaosDevice(ChaosSetup setup, Observer& observer)
    : setup_(std::move(setup)),
      observer_(observer),
      reporter_(observer),
      context_{DiceBox(setup_.seed), reporter_},
      dfu_(context_, setup_.firmware),
      misc_(context_, setup_.misc_data),
      rma_(context_, setup_.huge_partitions) {
    setup_.behaviour.misses_requests = true;
    new_host();
}

ChaosDevice::~ChaosDevice() = default;

void ChaosDevice::new_host() {
    model_ = std::make_unique<Coprocessor>(setup_.behaviour, setup_.firmware, observer_);
    model_->set_time(reporter_.now());
    context_.abort_due = false;
    context_.host_ends = false;
    version_told_ = false;
    for (const auto& [channel, path, file] : kChannelNames) {
        find(channel).new_host();
        find(channel).set_trouble({});
    }
    failing_control_opens_ = 0;
    Dice dice = context_.dice.roll("host");
    failing_controls_ = context_.noise > 0 && dice.one_in(4) ? dice.between(1, 6) : 0;
}

void ChaosDevice::behave(Behaviour behaviour, bool restarts) {
    model_ = std::make_unique<Coprocessor>(std::move(behaviour), setup_.firmware, observer_);
    model_->set_time(reporter_.now());
    behaves_ = true;
    for (const auto& [channel, path, file] : kChannelNames) {
        if (find(channel).is_open()) model_->open_channel(channel);
    }
    if (restarts) model_->restart_announced(kRestartInOrder);
}

void ChaosDevice::set_time(Time now) {
    reporter_.set_time(now);
    model_->set_time(now);
    if (behaves_) return;
    dfu_.pump();
    rma_.pump();
}

std::optional<Time> ChaosDevice::next_deadline() const {
    return model_->next_deadline();
}

std::string ChaosDevice::failure() const {
    if (!reporter_.failures().empty()) return reporter_.failures().front();
    return model_->failures().empty() ? "" : model_->failures().front();
}

std::string ChaosDevice::overdue(Time now) {
    if (behaves_) return "";
    const std::string dfu = dfu_.overdue(now);
    return dfu.empty() ? rma_.overdue(now) : dfu;
}

ChaosChannel& ChaosDevice::find(Channel channel) {
    return const_cast<ChaosChannel&>(std::as_const(*this).find(channel));
}

const ChaosChannel& ChaosDevice::find(Channel channel) const {
    switch (channel) {
        case Channel::kDfu:
            break;
        case Channel::kMiscData:
            return misc_;
        case Channel::kRma:
            return rma_;
    }
    return dfu_;
}

bool ChaosDevice::any_open() const {
    for (const auto& [channel, path, file] : kChannelNames) {
        if (find(channel).is_open()) return true;
    }
    return false;
}

void ChaosDevice::hang_up_all() {
    for (const auto& [channel, path, file] : kChannelNames) hang_up(channel);
}

void ChaosDevice::restart(std::optional<Time> length) {
    hang_up_all();
    model_->restart_announced(length);
}

void ChaosDevice::fail_control_opens(uint32_t count, int error) {
    failing_control_opens_ = count;
    control_open_error_ = error;
}

int ChaosDevice::open_control() {
    if (behaves_ || failing_control_opens_ == 0) return 0;
    --failing_control_opens_;
    context_.count("control device: failing open");
    return -control_open_error_;
}

int ChaosDevice::ioctl(uint32_t number, std::span<uint8_t> block, UserMemory& memory) {
    const ControlRequest request = ControlRequest::decode(number, block);
    int result = 0;
    ++context_.tasks;
    if (!behaves_ && failing_controls_ > 0 && request.error().empty()) {
        --failing_controls_;
        context_.count("control device: odd result");
        result = odd_result(request, block, memory);
    } else {
        result = model_->ioctl(number, block, memory);
    }
    if (request.command == Command::kVersion && result == 0) version_told_ = true;
    const bool stops = request.command == Command::kReset ||
                       request.command == Command::kSoftReset ||
                       request.command == Command::kUnload;
    if (stops && !behaves_) hang_up_all();
    return result;
}

// What changes the co-processor's state is done all the same, so that the next request fits it;
// only a load may really fail.
int ChaosDevice::odd_result(const ControlRequest& request, std::span<uint8_t> block,
                            UserMemory& memory) {
    Dice dice = context_.dice.roll("control request");
    switch (request.command) {
        case Command::kGetBootMode:
            return dice.one_of(kOddModes);
        case Command::kVersion:
            return dice.one_of(kOddResults);
        case Command::kLoad:
            if (dice.one_in(2)) return dice.one_of(kErrors);
            break;
        default:
            break;
    }
    model_->ioctl(request.number, block, memory);
    return dice.one_of(kOddResults);
}

int ChaosDevice::open_channel(Channel channel) {
    if (behaves_) return model_->open_channel(channel);
    return model_->status().running ? find(channel).open() : -ENODEV;
}

void ChaosDevice::close_channel(Channel channel) {
    find(channel).close();
    if (behaves_) model_->close_channel(channel);
}

int ChaosDevice::receive(Channel channel, std::span<const uint8_t> packet) {
    if (behaves_) return model_->receive(channel, packet);
    if (!model_->status().wakelock_held) {
        reporter_.fail("packet of " + std::to_string(packet.size()) +
                       " bytes written without the wakelock");
    }
    return find(channel).receive(packet);
}

bool ChaosDevice::readable(Channel channel) const {
    return behaves_ ? model_->readable(channel) : find(channel).readable();
}

bool ChaosDevice::hung_up(Channel channel) const {
    return behaves_ ? model_->hung_up(channel) : find(channel).hung_up();
}

Bytes ChaosDevice::take_packet(Channel channel) {
    return behaves_ ? model_->take_packet(channel) : find(channel).take_packet();
}

std::optional<int> ChaosDevice::read_error(Channel channel) {
    return behaves_ ? std::nullopt : find(channel).read_error();
}

unsigned ChaosDevice::odd_events(Channel channel) const {
    return behaves_ ? 0 : find(channel).odd_events();
}

void ChaosDevice::polled(Channel channel) {
    if (!behaves_) find(channel).polled();
}

void ChaosDevice::host_reads(Channel channel, size_t size, std::span<const uint8_t> bytes) {
    if (!behaves_) find(channel).host_reads(size, bytes);
}

}  // namespace sim
