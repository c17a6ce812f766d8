// SPDX-License-Identifier: Apache-2.0
// What the daemon uses of the application framework. Compiled at configuration, never run.
#include <aul.h>

int use(char* id) {
    return aul_app_get_appid_bypid(1, id, 1);
}
