// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The numbers of external inputs, where the service's own headers have them.
 */
#ifndef ZEL_LITE_SOURCES_SDK_E_SOURCE_H
#define ZEL_LITE_SOURCES_SDK_E_SOURCE_H

#include "ZelServiceAPI.h"

#endif
