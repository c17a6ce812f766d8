// SPDX-License-Identifier: Apache-2.0
// What the daemon uses of the platform's folders. Compiled at configuration, never run.
#include <tzplatform_config.h>

const char* use() {
    return tzplatform_mkpath(static_cast<tzplatform_variable>(6), "name");
}
