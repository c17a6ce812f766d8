// SPDX-License-Identifier: Apache-2.0
// Power on Linux: not modelled yet.
#include "dd-power.h"

#include <cstdio>
#include <cstdlib>

namespace {

int notModelled(const char* function) {
    std::fprintf(stderr, "%s is not modelled\n", function);
    std::abort();
}

}  // namespace

int device_power_subscribe_standby(int (* /*callback*/)(int, void*), void* /*user_data*/) {
    return notModelled("device_power_subscribe_standby");
}

int device_power_unsubscribe_standby(int (* /*callback*/)(int, void*)) {
    return notModelled("device_power_unsubscribe_standby");
}

int device_power_subscribe_early_wakeup(int (* /*callback*/)(int, void*), void* /*user_data*/) {
    return notModelled("device_power_subscribe_early_wakeup");
}

int device_power_unsubscribe_early_wakeup(int (* /*callback*/)(int, void*)) {
    return notModelled("device_power_unsubscribe_early_wakeup");
}
