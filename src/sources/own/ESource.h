// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The numbers of external inputs, where the service's own headers do not have them.
 */
#ifndef ZEL_LITE_SOURCES_OWN_E_SOURCE_H
#define ZEL_LITE_SOURCES_OWN_E_SOURCE_H

/** An external input. The numbers are the service's own; they have gaps. */
enum ESource : int {};

#endif
