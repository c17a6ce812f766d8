/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Timers that wake the machine at a date.
 *
 * A *timer* is held by the system, not by the process that asked for it: it outlives that process, and
 * whoever knows its *id* can cancel it. An id is above 0 and belongs to its timer until the timer is
 * cancelled or the machine restarts; one that is free again is not soon given anew.
 *
 * Normal flow: schedule, get the id in the completion callback, keep it where it is found again, cancel by
 * it.
 *
 * Scheduling and cancelling return at once and may be called from any thread, also from a completion
 * callback. They are carried out one at a time, in the order of the calls of one thread. The set's header is
 * not public; this one is its shape as far as the daemon shows it.
 */
#ifndef TVTIMER_H
#define TVTIMER_H

#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The type of timer that wakes the machine; the only one there is here. */
#define TVTIMER_TYPE_WAKE_UP 6

/** The mask of all seven weekdays: none is left out. The only one there is here. */
#define TVTIMER_EVERY_DAY 0x7F

/** What is known of a timer that was set. */
typedef struct tvtimer_info_s tvtimer_info_s;

/**
 * Tells that a timer was set, or could not be set. Called once for each timer that was scheduled
 * successfully, on a thread of the library. Must not throw.
 *
 * @param info       the timer, to be released with tvtimer_free; null when it could not be set
 * @param user_data  as given when it was scheduled
 */
typedef void (*tvtimer_scheduled_cb)(tvtimer_info_s* info, void* user_data);

/**
 * Schedules a timer that wakes the machine once.
 *
 * @param type       TVTIMER_TYPE_WAKE_UP
 * @param date       the date in UTC; by value, so nothing has to outlive the call. Years 1970 to 2199;
 * weekday, day of the year and daylight saving are ignored. A date in the past is accepted as it stands:
 * whether it wakes the machine is the system's business
 * @param weekdays   TVTIMER_EVERY_DAY
 * @param flags      0
 * @param callback   is told how it went
 * @param user_data  handed to the callback
 * @return 0; -EINVAL when the date does not exist or another argument is none of the above, -ENOMEM when
 * memory is short, and then the callback is not called
 */
int tvtimer_schedule_timer_at_date_async(int type, struct tm date, int weekdays, int flags,
                                         tvtimer_scheduled_cb callback, void* user_data);

/**
 * Cancels a timer. One that is not there is none to cancel, which is no error.
 *
 * @param id  what tvtimer_get_id gave, in this process or an earlier one
 * @return 0; -EINVAL when no timer can have that id, -ENOMEM when memory is short
 */
int tvtimer_cancel_timer_by_id_async(int id);

/**
 * Gives the id of a timer.
 *
 * @param info  what a completion callback got
 * @param id    gets the id; not touched on failure
 * @return 0; -EINVAL when an argument is null
 */
int tvtimer_get_id(tvtimer_info_s* info, int* id);

/**
 * Releases what a completion callback got. The timer stays.
 *
 * @param info  may be null
 */
void tvtimer_free(tvtimer_info_s* info);

#ifdef __cplusplus
}
#endif

#endif
