// SPDX-License-Identifier: Apache-2.0
// The one call of the operating system that the benchmarks answer themselves: the transport opens
// its channel by a device's path, and a socket cannot be opened that way.
#pragma once

#include <string>

namespace bench {

// From now on os::open of `device_path` ("/dev/glink_pkt_marlo_dfu") gives a duplicate of `fd`,
// as often as it is asked for; a negative `fd` takes the offer back. `fd` stays the caller's and
// must be open for as long as the offer stands. Every other path is opened below the root prefix,
// as the daemon does (platform/linux/root.h). Safe on any thread.
void offer_channel(const std::string& device_path, int fd);

}  // namespace bench
