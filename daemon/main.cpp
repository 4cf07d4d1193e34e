// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>
#include <cutils/properties.h>

#include <cstdlib>

#include "daemon/MarloDaemon.h"
#include "platform/os.h"

int main() {
    os::initialize();
    MarloDaemon daemon;
    char presence[PROPERTY_VALUE_MAX] = {};
    const int length = property_get("ro.vendor.zt_aon_presence", presence, nullptr);
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "aon_len: %d, ro.vendor.zt_aon_presence: %d \n",
                        length, atoi(presence));
    if (atoi(presence) == 0) {
        __android_log_print(ANDROID_LOG_INFO, nullptr, "ZT AON not present: Do not perform PIL");
        return NO_AON_DEVICE;
    }
    daemon.startMarloDaemon();
}
