// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Why the service is needed. The service receives the number of a trigger together with a TSNotifyData, so
 * the numbers never change; a new reason gets a new number. The build finds out whether the service's own
 * headers have the enumeration, and takes it from there or from triggers/own.
 */
#ifndef ZEL_LITE_TRIGGER_TYPES_H
#define ZEL_LITE_TRIGGER_TYPES_H

#include "ETriggerType.h"

static_assert(TRIGGER_TYPE_SOURCE_PLUG == 0 && TRIGGER_TYPE_START_ZEL_MAIN == 1 &&
                  TRIGGER_TYPE_NETWORK_TIME == 2 && TRIGGER_TYPE_CLOCK_MODE == 3 &&
                  TRIGGER_TYPE_SYNC_TIME == 4 && TRIGGER_TYPE_STOLEN_TV == 5,
              "the service knows triggers by these numbers");

#endif
