// SPDX-License-Identifier: Apache-2.0
#include <tzplatform_config.h>

const char* tzplatform_mkpath(enum tzplatform_variable, const char*) {
    return nullptr;
}
