// SPDX-License-Identifier: Apache-2.0
// The platform's folders: the one of the switches is /etc, and asking for a path is the action "mkpath PATH".
#include <tzplatform_config.h>

#include <set>
#include <string>

#include "fakes/Actions.h"

const char* tzplatform_mkpath(enum tzplatform_variable variable, const char* path) {
    static std::set<std::string> interned;
    fakes::Actions::add("mkpath " + std::string(path));
    return variable == 6 ? interned.insert(std::string("/etc/") + path).first->c_str() : nullptr;
}
