/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Being told when the machine goes to standby and when it wakes up early.
 *
 * *Standby* is announced before the machine falls asleep, which waits, for some seconds at most, until all
 * callbacks have returned. *Early wake-up* is told as soon as the machine runs again. Callbacks run on the
 * GLib default main context; a program that never runs it is never called.
 *
 * Normal flow: subscribe, be called any number of times, unsubscribe the same callback.
 *
 * All four functions may be called from any thread, also from inside a callback, and wait for nothing: not
 * for the bus, not for a callback that is running. They are the set's by analogy with others of its power
 * library.
 */
#ifndef DD_POWER_H
#define DD_POWER_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Asks to be called before each standby from now on. One that was announced before is not told.
 *
 * @param callback   gets 0 and @p user_data; what it returns is ignored. Must not throw
 * @param user_data  handed to the callback
 * @return 0; -1 when the callback is null or subscribed already, whatever its user data, or memory is short
 */
int device_power_subscribe_standby(int (*callback)(int, void*), void* user_data);

/**
 * Ends a subscription. Once it has returned no call begins, not even for a standby that has been announced;
 * one that is running on another thread goes on.
 *
 * @param callback  as subscribed
 * @return 0; -1 when it is not subscribed
 */
int device_power_unsubscribe_standby(int (*callback)(int, void*));

/**
 * Asks to be called at each early wake-up from now on.
 *
 * @param callback   gets 0 and @p user_data; what it returns is ignored. Must not throw
 * @param user_data  handed to the callback
 * @return 0; -1 when the callback is null or subscribed already, whatever its user data, or memory is short
 */
int device_power_subscribe_early_wakeup(int (*callback)(int, void*), void* user_data);

/**
 * Ends a subscription, as device_power_unsubscribe_standby does.
 *
 * @param callback  as subscribed
 * @return 0; -1 when it is not subscribed
 */
int device_power_unsubscribe_early_wakeup(int (*callback)(int, void*));

#ifdef __cplusplus
}
#endif

#endif
