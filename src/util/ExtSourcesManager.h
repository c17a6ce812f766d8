// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * External inputs start the service.
 *
 * The platform publishes the plug state of every external input as an integer setting. Each change is sent to
 * the service with the number of the input, plugging and unplugging alike; what is plugged already when the
 * daemon starts is sent then.
 */
#ifndef ZEL_LITE_EXT_SOURCES_MANAGER_H
#define ZEL_LITE_EXT_SOURCES_MANAGER_H

#include <vconf.h>

#include <map>
#include <string>

#include "ESource.h"

class TCZelDaemonStateManager;

/** Watches from construction to destruction, whether the service runs or not. Lives on the main thread. */
class TCExtSourcesManager {
public:
    /** Watches all inputs and reports those that are plugged. */
    explicit TCExtSourcesManager(TCZelDaemonStateManager& manager);
    ~TCExtSourcesManager();
    TCExtSourcesManager(const TCExtSourcesManager&) = delete;
    TCExtSourcesManager& operator=(const TCExtSourcesManager&) = delete;

    /** Reports the input that @p node names. @param userData  the manager */
    static void SourcePlugChanged(keynode_t* node, void* userData);

private:
    void m_prepareMonitoredSources();
    void m_startMonitoring();
    void m_stopMonitoring();
    void m_notifyKeyState(const std::string& key);

    TCZelDaemonStateManager& m_stateManager;
    /** The inputs by their setting. */
    std::map<const std::string, ESource> m_sources;
};

#endif
