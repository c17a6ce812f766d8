// SPDX-License-Identifier: Apache-2.0
#include "Connections.h"

#include "ProgramName.h"

namespace {

std::uint32_t pidOf(const std::optional<TSCallerProperties>& properties) {
    return properties ? properties->pid : 0;
}

}  // namespace

void Connections::addPresent(const std::vector<std::string>& names, const std::string& own) {
    for (const std::string& name : names) {
        if (name.rfind(':', 0) == 0 && name != own) {
            m_known.try_emplace(name);
        }
    }
}

const TSCallerProperties& Connections::addCaller(const std::string& name, const PidLookup& lookUpPid) {
    std::optional<TSCallerProperties>& properties = m_known[name];
    if (!properties) {
        properties.emplace();
        properties->pid = lookUpPid();
        properties->progName = programName(properties->pid);
    }
    return *properties;
}

std::optional<std::uint32_t> Connections::remove(const std::string& name) {
    const auto found = m_known.find(name);
    if (found == m_known.end()) {
        return std::nullopt;
    }
    const std::uint32_t pid = pidOf(found->second);
    m_known.erase(found);
    return pid;
}

std::vector<std::pair<std::string, std::uint32_t>> Connections::removeAll() {
    std::vector<std::pair<std::string, std::uint32_t>> gone;
    gone.reserve(m_known.size());
    for (const auto& [name, properties] : m_known) {
        gone.emplace_back(name, pidOf(properties));
    }
    m_known.clear();
    return gone;
}
