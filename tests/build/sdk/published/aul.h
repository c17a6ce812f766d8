/* SPDX-License-Identifier: Apache-2.0 */
/* The application framework as its public header has it. */
#ifndef __AUL_H__
#define __AUL_H__

#include <sys/types.h>
#include <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum _aul_return_val {
    AUL_R_EREJECTED = -14,
    AUL_R_ENOAPP = -13,
    AUL_R_ETERMINATING = -9,
    AUL_R_ETIMEOUT = -5,
    AUL_R_EINVAL = -4,
    AUL_R_ECOMM = -3,
    AUL_R_ECANCELED = -2,
    AUL_R_ERROR = -1,
    AUL_R_OK = 0
} aul_return_val;

int aul_app_get_appid_bypid(int pid, char* appid, int len);
int aul_app_get_pkgid_bypid(int pid, char* pkgid, int len);

#ifdef __cplusplus
}
#endif

#endif
