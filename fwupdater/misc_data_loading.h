// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fwupdater/marlo_misc_resource.h"

// The resources of a misc-data transfer. Shared, so that a transfer keeps what it sends though the
// updater's list may be emptied meanwhile.
using MiscResources = std::vector<std::shared_ptr<const marlo_misc_resource>>;

// Reads the files of `table`, in the order of their paths. A file that cannot be opened or read, or
// that memory has no room for, is logged and left out. Safe on any thread.
MiscResources load_misc_resources(const std::map<std::string, Offload_Type>& table);
