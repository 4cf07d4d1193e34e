// SPDX-License-Identifier: Apache-2.0
#pragma once

// The two constants of Android's C library that <cutils/properties.h> builds on.
#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92
