// SPDX-License-Identifier: Apache-2.0
// What the daemon uses of the timers. Compiled at configuration, never run.
#include <tvtimer.h>

#include <ctime>

static void scheduled(tvtimer_info_s* info, void*) {
    int id = -1;
    tvtimer_get_id(info, &id);
    tvtimer_free(info);
}

int use() {
    tm date{};
    tvtimer_cancel_timer_by_id_async(1);
    return tvtimer_schedule_timer_at_date_async(6, date, 127, 0, scheduled, nullptr);
}
