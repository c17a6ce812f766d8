// SPDX-License-Identifier: Apache-2.0
#include <aul.h>

int aul_app_get_appid_bypid(int, char*, int) {
    return -1;
}
