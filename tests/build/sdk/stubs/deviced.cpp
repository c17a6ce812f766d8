// SPDX-License-Identifier: Apache-2.0
#include <dd-power.h>

int device_power_subscribe_standby(int (*)(int, void*), void*) {
    return -1;
}
int device_power_unsubscribe_standby(int (*)(int, void*)) {
    return -1;
}
int device_power_subscribe_early_wakeup(int (*)(int, void*), void*) {
    return -1;
}
int device_power_unsubscribe_early_wakeup(int (*)(int, void*)) {
    return -1;
}
