/* SPDX-License-Identifier: Apache-2.0 */
/* Names in the order of strcmp, numbers from 0 on: TZ_SYS_ETC is not 6. */
#ifndef TIZEN_PLATFORM_VARIABLES_H
#define TIZEN_PLATFORM_VARIABLES_H

enum tzplatform_variable {
    TZ_BUILD_DATE = 0,
    TZ_BUILD_ID,
    TZ_BUILD_RELEASE_TYPE,
    TZ_BUILD_TS,
    TZ_BUILD_VARIANT,
    TZ_SDK_HOME,
    TZ_SYS_BIN,
    TZ_SYS_CRASH,
    TZ_SYS_DATA,
    TZ_SYS_DB,
    TZ_SYS_DEVICE,
    TZ_SYS_DUMPGEN,
    TZ_SYS_ENV,
    TZ_SYS_ETC,
    TZ_SYS_GLOBALAPP_DB,
    TZ_SYS_GLOBALUSER_DB,
    TZ_SYS_HOME,
    TZ_USER_HOME,
    _TZPLATFORM_VARIABLES_COUNT_,
    _TZPLATFORM_VARIABLES_INVALID_ = -1
};

#endif
