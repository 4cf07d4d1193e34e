// SPDX-License-Identifier: Apache-2.0
// The packet channels' device files.
#pragma once

#include "sim/device.h"

namespace sim {

struct ChannelName {
    Channel channel;
    const char* path;  // from the root on
    const char* file;  // the same, in /dev
};

inline constexpr ChannelName kChannelNames[] = {
    {Channel::kDfu, "/dev/glink_pkt_marlo_dfu", "glink_pkt_marlo_dfu"},
    {Channel::kMiscData, "/dev/glink_pkt_marlo_custom_data", "glink_pkt_marlo_custom_data"},
    {Channel::kRma, "/dev/glink_pkt_marlo_rma", "glink_pkt_marlo_rma"},
};

}  // namespace sim
