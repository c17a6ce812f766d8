// SPDX-License-Identifier: Apache-2.0
#ifndef ZEL_LITE_I_ZEL_DAEMON_STATE_LISTENER_H
#define ZEL_LITE_I_ZEL_DAEMON_STATE_LISTENER_H

#include "ZelServiceAPI.h"

/**
 * Hears of the service's start and termination from the state manager, on whichever thread caused them and
 * with the state manager's mutex held: an implementation may call the state manager, but must not wait for
 * another thread that does.
 */
class IZelDaemonStateListener {
public:
    virtual ~IZelDaemonStateListener() = default;

    /** Runs when the service was started or first reached, and when it refused to terminate: it runs from now
     * on. */
    virtual void OnStart() = 0;

    /** Runs before the service is asked to terminate. */
    virtual void OnTerminate() = 0;

    /** Runs when the service has agreed to terminate. */
    virtual void OnTerminateSuccess(const TSZelData& data) = 0;
};

#endif
