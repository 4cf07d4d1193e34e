// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

// An empty directory of the platform that the test program links, as the product would name it.
std::string empty_directory();
