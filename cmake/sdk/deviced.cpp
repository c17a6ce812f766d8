// SPDX-License-Identifier: Apache-2.0
// What the daemon uses of the power library. Compiled at configuration, never run.
#include <dd-power.h>

static int called(int state, void* data) {
    return data == nullptr ? state : 0;
}

void use() {
    device_power_subscribe_standby(called, nullptr);
    device_power_unsubscribe_standby(called);
    device_power_subscribe_early_wakeup(called, nullptr);
    device_power_unsubscribe_early_wakeup(called);
}
