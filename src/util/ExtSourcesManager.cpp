// SPDX-License-Identifier: Apache-2.0
#include "ExtSourcesManager.h"

#include <array>

#include "Diagnostics.h"
#include "TriggerTypes.h"
#include "ZelDaemonStateManager.h"

namespace {

struct TSSourceKey {
    const char* key;
    ESource source;
};
constexpr std::array<TSSourceKey, 14> kSourceKeys{{
    {"memory/sysman/av1", static_cast<ESource>(1)},
    {"memory/sysman/av2", static_cast<ESource>(2)},
    {"memory/sysman/comp1", static_cast<ESource>(7)},
    {"memory/sysman/comp2", static_cast<ESource>(8)},
    {"memory/sysman/scart1", static_cast<ESource>(17)},
    {"memory/sysman/scart2", static_cast<ESource>(18)},
    {"memory/sysman/hdmi1", static_cast<ESource>(13)},
    {"memory/sysman/hdmi2", static_cast<ESource>(14)},
    {"memory/sysman/hdmi3", static_cast<ESource>(15)},
    {"memory/sysman/hdmi4", static_cast<ESource>(16)},
    {"memory/sysman/hdmi5", static_cast<ESource>(38)},
    {"memory/sysman/hdmi6", static_cast<ESource>(39)},
    {"memory/sysman/hdmi7", static_cast<ESource>(46)},
    {"memory/sysman/hdmi8", static_cast<ESource>(47)},
}};

}  // namespace

TCExtSourcesManager::TCExtSourcesManager(TCZelDaemonStateManager& manager) : m_stateManager(manager) {
    m_startMonitoring();
}

TCExtSourcesManager::~TCExtSourcesManager() {
    m_stopMonitoring();
}

void TCExtSourcesManager::SourcePlugChanged(keynode_t* node, void* userData) {
    if (userData == nullptr) {
        ZEL_LOG_ERROR("ExtSourcesManager object is NULL!");
        return;
    }
    const auto& self = *static_cast<const TCExtSourcesManager*>(userData);
    const char* const name = vconf_keynode_get_name(node);
    const std::string key = name == nullptr ? "" : name;
    const auto found = self.m_sources.find(key);
    if (found == self.m_sources.end()) {
        ZEL_LOG_ERROR("Callback for key out of sources map! Callback_key: [%s]", key.c_str());
        return;
    }
    TSNotifyData data;
    data.source = found->second;
    // A setting that was removed reads -1, and is reported so.
    data.sourcePlugState = vconf_keynode_get_int(node);
    if (self.m_stateManager.Notify(TRIGGER_TYPE_SOURCE_PLUG, data)) {
        ZEL_LOG_DEBUG("Notified ZEL-MAIN! -> source[%d], sourcePlugState[%d]", data.source,
                      data.sourcePlugState);
    } else {
        ZEL_LOG_ERROR("ZEL-MAIN notify FAILED! -> source[%d], sourcePlugState[%d]", data.source,
                      data.sourcePlugState);
    }
}

void TCExtSourcesManager::m_prepareMonitoredSources() {
    for (const TSSourceKey& row : kSourceKeys) {
        m_sources.emplace(row.key, row.source);
    }
}

void TCExtSourcesManager::m_startMonitoring() {
    m_prepareMonitoredSources();
    for (const auto& row : m_sources) {
        vconf_notify_key_changed(row.first.c_str(), SourcePlugChanged, this);
        m_notifyKeyState(row.first);
    }
}

void TCExtSourcesManager::m_stopMonitoring() {
    for (const auto& row : m_sources) {
        vconf_ignore_key_changed(row.first.c_str(), SourcePlugChanged);
    }
    m_sources.clear();
}

// Watching tells of changes only: what was plugged before is reported as if it had just changed.
void TCExtSourcesManager::m_notifyKeyState(const std::string& key) {
    int plugState = 0;
    vconf_get_int(key.c_str(), &plugState);
    if (plugState == 0) {
        return;
    }
    std::string name = key;
    keynode_t node{};
    node.keyname = name.data();
    node.type = VCONF_TYPE_INT;
    node.value.i = plugState;
    SourcePlugChanged(&node, this);
}
