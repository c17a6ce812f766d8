// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Which application a process belongs to.
 *
 * Asking the application framework is a call into another process, so what it knew is kept, until the IPC
 * library reports that the process has gone. A process that never called over IPC is never reported: its
 * entry stays.
 */
#ifndef ZEL_LITE_APP_ID_CACHE_H
#define ZEL_LITE_APP_ID_CACHE_H

#include <map>
#include <shared_mutex>
#include <string>

#include "TCIpcProperties.h"

/** The one cache of the process. Callable from any thread; lookups wait for a query that is under way. */
class TCAppIdCache : public TIIPCCallersObserver {
public:
    /** The instance, made at its first use and registered with the IPC library from then on. */
    static TCAppIdCache& Instance();

    TCAppIdCache(const TCAppIdCache&) = delete;
    TCAppIdCache& operator=(const TCAppIdCache&) = delete;

    /** The application id of a process; empty, and asked for anew each time, when it is not known. */
    std::string GetAppIdByPid(int pid);

    void SetCurrentCaller(const TSCallerProperties& caller) override;
    void ClearCurrentCaller() override;

    /** Forgets the process. */
    void OwnerRemoved(const std::string& connectionName, std::uint32_t pid) override;

private:
    TCAppIdCache();
    ~TCAppIdCache() override;

    static std::string m_getAppIdFromAUL(int pid);
    void m_debugPrintCacheData() const;

    std::shared_mutex m_lock;
    std::map<int, std::string> m_cache;
};

#endif
