// SPDX-License-Identifier: Apache-2.0
#include "Connections.h"

#include <algorithm>
#include <set>
#include <utility>

std::vector<Departure> Connections::begin(const std::string& busId, const std::vector<std::string>& names,
                                          const std::string& own) {
    if (m_busId.empty()) {
        const auto [lastBusId, callers] = CallersFile::read();
        m_busId = lastBusId;
        for (const auto& [name, pid] : callers) {
            m_known[name].rememberedPid = pid;
        }
    }
    m_isOnSameBus = m_busId == busId;
    std::vector<Departure> gone = compare(m_isOnSameBus ? names : std::vector<std::string>());
    CallersFile::Callers callers;
    for (auto& [name, known] : m_known) {
        if (known.identity) {
            known.rememberedPid = known.identity->properties.pid;
        }
        known.identity.reset();
        known.isAsked = false;
        if (known.rememberedPid) {
            callers[name] = *known.rememberedPid;
        }
    }
    for (const std::string& name : names) {
        if (name.rfind(':', 0) == 0 && name != own) {
            m_known.try_emplace(name);
        }
    }
    m_busId = busId;
    m_file.begin(busId, callers);
    return gone;
}

std::vector<Departure> Connections::compare(const std::vector<std::string>& names) {
    const std::set<std::string> present(names.begin(), names.end());
    std::vector<Departure> gone;
    for (auto known = m_known.begin(); known != m_known.end();) {
        if (present.count(known->first) != 0) {
            ++known;
            continue;
        }
        gone.push_back({known->first, pidOf(known->second)});
        m_file.remove(known->first);
        known = m_known.erase(known);
    }
    return gone;
}

std::vector<std::string> Connections::remembered() const {
    std::vector<std::string> names;
    for (const auto& [name, known] : m_known) {
        if (known.rememberedPid && !known.identity) {
            names.push_back(name);
        }
    }
    return names;
}

bool Connections::add(const std::string& name) {
    return !std::exchange(m_known[name].isAsked, true);
}

const Connections::Identity* Connections::identity(const std::string& name) const {
    const auto known = m_known.find(name);
    return known != m_known.end() && known->second.identity ? &*known->second.identity : nullptr;
}

std::optional<Departure> Connections::identify(const std::string& name, const Identity& identity) {
    const auto known = m_known.find(name);
    if (known == m_known.end()) {
        return std::nullopt;
    }
    std::optional<Departure> departure;
    if (const auto pid = known->second.rememberedPid; pid && *pid != identity.properties.pid) {
        departure = Departure{name, *pid};
    }
    known->second.rememberedPid.reset();
    known->second.identity = identity;
    m_file.add(name, identity.properties.pid);
    return departure;
}

std::optional<Departure> Connections::remove(const std::string& name) {
    const auto known = m_known.find(name);
    if (known == m_known.end()) {
        return std::nullopt;
    }
    const Departure departure{name, pidOf(known->second)};
    m_file.remove(name);
    m_known.erase(known);
    return departure;
}

std::uint32_t Connections::pidOf(const Known& known) {
    return known.identity ? known.identity->properties.pid : known.rememberedPid.value_or(0);
}
