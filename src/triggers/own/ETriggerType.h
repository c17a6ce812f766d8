// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The triggers, where the service's own headers do not have them.
 */
#ifndef ZEL_LITE_TRIGGERS_OWN_E_TRIGGER_TYPE_H
#define ZEL_LITE_TRIGGERS_OWN_E_TRIGGER_TYPE_H

#include "ZelServiceAPI.h"

enum ETriggerType : int {
    /** An external input was plugged or unplugged; `source` and `sourcePlugState` say which and how. */
    TRIGGER_TYPE_SOURCE_PLUG = 0,
    /** The service is needed, for no more particular reason. A service that runs already is not sent this
       one. */
    TRIGGER_TYPE_START_ZEL_MAIN = 1,
    /** The network-time setting changed to `value`. */
    TRIGGER_TYPE_NETWORK_TIME = 2,
    /** The clock-mode setting changed to `value`. */
    TRIGGER_TYPE_CLOCK_MODE = 3,
    /** The system time has drifted from the hardware clock and must be synchronised. */
    TRIGGER_TYPE_SYNC_TIME = 4,
    /** The stolen-television setting changed; `value` is 1 when the set is to be blocked, else 0. */
    TRIGGER_TYPE_STOLEN_TV = 5,
};

#endif
