// SPDX-License-Identifier: Apache-2.0
// The daemon sets a property when an update begins. There is no device here that it could be of.
#include <cutils/properties.h>

#include <cstring>

int property_get(const char* /*key*/, char* value, const char* default_value) {
    value[0] = '\0';
    if (default_value != nullptr) {
        std::strncat(value, default_value, PROPERTY_VALUE_MAX - 1);
    }
    return static_cast<int>(std::strlen(value));
}

int property_set(const char* /*key*/, const char* /*value*/) {
    return 0;
}
