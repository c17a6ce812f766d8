// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the television's hardware clock shows, as told by one line of a file that only root writes.
 *
 *     offset SECONDS    the system's time and so many seconds, or less than it when negative
 *     time SECONDS      so many seconds since the epoch, always
 *     absent            there is no such device
 *     unreadable        the device opens but tells no time
 *
 * Without the file the clock shows the system's time. What makes no sense is logged, and the device is
 * unreadable.
 */
#ifndef SIMULATOR_RTC_CLOCK_H
#define SIMULATOR_RTC_CLOCK_H

#include <linux/rtc.h>

#include <optional>

namespace rtc {

/** Whether there is a device to open. Callable from any thread. */
bool isPresent();

/** What the clock shows now, in UTC; nothing when it is unreadable. Callable from any thread. */
std::optional<rtc_time> read();

}  // namespace rtc

#endif
