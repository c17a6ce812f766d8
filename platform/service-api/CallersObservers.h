// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The inner side of TCIpcProperties: telling every observer, in the order in which they were added.
 */
#ifndef SERVICE_API_CALLERS_OBSERVERS_H
#define SERVICE_API_CALLERS_OBSERVERS_H

#include <cstdint>
#include <string>
#include <vector>

#include "TCIpcProperties.h"

/** Tells all observers. No lock is held while an observer runs, so an observer may add or remove
 * one. */
class CallersObservers {
public:
    /** Announces the caller of the next call. What an observer throws passes on: the call can't be served
     * then. */
    static void setCurrentCaller(const TSCallerProperties& caller);

    /** Ends the announcement for every observer; what one throws is logged. */
    static void clearCurrentCaller();

    /** Reports that a connection has left the bus to every observer; what one throws is logged. */
    static void ownerRemoved(const std::string& connectionName, std::uint32_t pid);

private:
    static std::vector<TIIPCCallersObserver*> all();
    static bool isPresent(const TIIPCCallersObserver* observer);
    template <typename Hook>
    static void tellAll(Hook hook);
};

#endif
