// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include "ZelApiLite.h"

namespace ZelApiLite {

bool LiteUtility::IsDebug() {
    return access("/etc/debug", F_OK) == 0;
}

bool LiteUtility::IsPerf() {
    return access("/etc/perf", F_OK) == 0;
}

}  // namespace ZelApiLite
