// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeAul.h"

#include <aul.h>

#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "fakes/Actions.h"

namespace fakes {
namespace {

std::mutex mutex;
std::map<int, std::string> known;
std::function<void()> queryHook;

}  // namespace

void FakeAul::know(int pid, const std::string& appId) {
    const std::lock_guard<std::mutex> lock(mutex);
    known[pid] = appId;
}

void FakeAul::duringQuery(std::function<void()> hook) {
    const std::lock_guard<std::mutex> lock(mutex);
    queryHook = std::move(hook);
}

void FakeAul::reset() {
    const std::lock_guard<std::mutex> lock(mutex);
    known.clear();
    queryHook = nullptr;
}

}  // namespace fakes

int aul_app_get_appid_bypid(int pid, char* appid, int len) {
    fakes::Actions::add("aul " + std::to_string(pid) + " " + std::to_string(len));
    std::function<void()> hook;
    std::string id;
    {
        const std::lock_guard<std::mutex> lock(fakes::mutex);
        hook = fakes::queryHook;
        const auto found = fakes::known.find(pid);
        if (found == fakes::known.end()) {
            return -1;
        }
        id = found->second;
    }
    if (hook) {
        hook();
    }
    strncpy(appid, id.c_str(), static_cast<std::size_t>(len));
    return 0;
}
