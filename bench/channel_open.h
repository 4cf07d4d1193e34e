// SPDX-License-Identifier: Apache-2.0
// The one call of the operating system that the benchmarks answer themselves, os::open: the
// transport opens its channel by a device's path, and a socket cannot be opened that way; files of
// the daemon's may have to be in one place and then in another. Safe on any thread.
#pragma once

#include <string>

namespace bench {

// From now on os::open of `device_path` ("/dev/glink_pkt_marlo_dfu") gives a duplicate of `fd`,
// as often as it is asked for; a negative `fd` takes the offer back. `fd` stays the caller's and
// must be open for as long as the offer stands.
void offer_channel(const std::string& device_path, int fd);

// From now on os::open of a path that begins with `beginning` opens what is called `instead` there,
// wherever the root prefix is. Replaces an earlier one for the same beginning. The other calls that
// take a path (platform/os.h) know nothing of it.
void open_instead(const std::string& beginning, const std::string& instead);

// Every other path is opened below the root prefix, as the daemon does (platform/linux/root.h).

}  // namespace bench
