// SPDX-License-Identifier: Apache-2.0
#include <tvtimer.h>

int tvtimer_schedule_timer_at_date_async(int, struct tm, int, int, tvtimer_scheduled_cb, void*) {
    return -1;
}
int tvtimer_cancel_timer_by_id_async(int) {
    return -1;
}
int tvtimer_get_id(tvtimer_info_s*, int*) {
    return -1;
}
void tvtimer_free(tvtimer_info_s*) {}
