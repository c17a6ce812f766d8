/* SPDX-License-Identifier: Apache-2.0 */
/* The folders of the platform as their public header has them: a generator numbers the sorted names. */
#ifndef TIZEN_PLATFORM_WRAPPER_H
#define TIZEN_PLATFORM_WRAPPER_H

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

#include "tzplatform_variables.h"

extern const char* tzplatform_getname(enum tzplatform_variable id);
extern const char* tzplatform_getenv(enum tzplatform_variable id);
extern int tzplatform_getenv_int(enum tzplatform_variable id);
extern const char* tzplatform_mkpath(enum tzplatform_variable id, const char* path);
extern const char* tzplatform_mkpath3(enum tzplatform_variable id, const char* path, const char* path2);

#ifdef __cplusplus
}
#endif

#endif
