// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeAul.h"

#include <aul.h>

#include <cstring>
#include <map>
#include <mutex>

#include "fakes/Actions.h"

namespace fakes {
namespace {

std::mutex mutex;
std::map<int, std::string> known;

}  // namespace

std::atomic<int> FakeAul::result{0};

void FakeAul::know(int pid, const std::string& appId) {
    const std::lock_guard<std::mutex> lock(mutex);
    known[pid] = appId;
}

void FakeAul::reset() {
    const std::lock_guard<std::mutex> lock(mutex);
    known.clear();
    result = 0;
}

}  // namespace fakes

int aul_app_get_appid_bypid(int pid, char* appid, int len) {
    fakes::Actions::add("aul " + std::to_string(pid) + " " + std::to_string(len));
    std::string id;
    {
        const std::lock_guard<std::mutex> lock(fakes::mutex);
        const auto found = fakes::known.find(pid);
        if (found == fakes::known.end()) {
            return -1;
        }
        id = found->second;
    }
    strncpy(appid, id.c_str(), static_cast<std::size_t>(len));
    return fakes::FakeAul::result;
}
