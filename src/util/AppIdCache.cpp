// SPDX-License-Identifier: Apache-2.0
#include "AppIdCache.h"

#include <aul.h>

#include <array>
#include <exception>
#include <mutex>

#include "Diagnostics.h"

TCAppIdCache& TCAppIdCache::Instance() {
    static TCAppIdCache cache;
    return cache;
}

TCAppIdCache::TCAppIdCache() {
    TCIpcProperties::Instance().AddCallersObserver(*this);
}

TCAppIdCache::~TCAppIdCache() {
    try {
        TCIpcProperties::Instance().RemoveCallersObserver(*this);
    } catch (const std::exception&) {
        // The process ends: there is nobody left to tell.
        return;
    }
}

std::string TCAppIdCache::GetAppIdByPid(int pid) {
    {
        const std::shared_lock<std::shared_mutex> lock(m_lock);
        if (const auto known = m_cache.find(pid); known != m_cache.end()) {
            return known->second;
        }
    }
    const std::unique_lock<std::shared_mutex> lock(m_lock);
    if (const auto known = m_cache.find(pid); known != m_cache.end()) {
        return known->second;
    }
    std::string appId = m_getAppIdFromAUL(pid);
    if (!appId.empty()) {
        m_cache[pid] = appId;
        m_debugPrintCacheData();
    }
    return appId;
}

void TCAppIdCache::SetCurrentCaller(const TSCallerProperties& /*caller*/) {}

void TCAppIdCache::ClearCurrentCaller() {}

void TCAppIdCache::OwnerRemoved(const std::string& /*connectionName*/, std::uint32_t pid) {
    const int key = static_cast<int>(pid);
    ZEL_LOG_ERROR("Remove entry for PID: [%d]", key);
    const std::unique_lock<std::shared_mutex> lock(m_lock);
    m_cache.erase(key);
}

// One byte is held back, so that what comes back ends in a zero however long the id is.
std::string TCAppIdCache::m_getAppIdFromAUL(int pid) {
    std::array<char, 512> appId{};
    ZEL_LOG_ERROR("aul_app_get_appid_bypid call start!");
    const int result = aul_app_get_appid_bypid(pid, appId.data(), static_cast<int>(appId.size()) - 1);
    ZEL_LOG_ERROR("aul_app_get_appid_bypid returned: %d, appid: %s", result, appId.data());
    return result == 0 ? appId.data() : std::string();
}

void TCAppIdCache::m_debugPrintCacheData() const {
    for (const auto& [pid, appId] : m_cache) {
        ZEL_LOG_DEBUG("PID: [%d] -> AppId: [%s]", pid, appId.c_str());
    }
}
