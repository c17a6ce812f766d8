// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The triggers, where the service's own headers have them.
 */
#ifndef ZEL_LITE_TRIGGERS_SDK_E_TRIGGER_TYPE_H
#define ZEL_LITE_TRIGGERS_SDK_E_TRIGGER_TYPE_H

#include "ZelServiceAPI.h"

#endif
