// SPDX-License-Identifier: Apache-2.0
// Timers on Linux: not modelled yet.
#include "tvtimer.h"

#include <cstdio>
#include <cstdlib>

namespace {

int notModelled(const char* function) {
    std::fprintf(stderr, "%s is not modelled\n", function);
    std::abort();
}

}  // namespace

int tvtimer_schedule_timer_at_date_async(int /*type*/, struct tm /*date*/, int /*weekdays*/, int /*flags*/,
                                         tvtimer_scheduled_cb /*callback*/, void* /*user_data*/) {
    return notModelled("tvtimer_schedule_timer_at_date_async");
}

int tvtimer_cancel_timer_by_id_async(int /*id*/) {
    return notModelled("tvtimer_cancel_timer_by_id_async");
}

int tvtimer_get_id(tvtimer_info_s* /*info*/, int* /*id*/) {
    return notModelled("tvtimer_get_id");
}

void tvtimer_free(tvtimer_info_s* /*info*/) {
    notModelled("tvtimer_free");
}
