// SPDX-License-Identifier: Apache-2.0
#include "CallQueue.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

std::size_t costOf(const Call& call) {
    return call.size + CallQueue::kCallOverhead;
}

}  // namespace

std::vector<Call> CallQueue::push(Call call) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Call> refused;
    Waiting& caller = m_callers[call.sender];
    if (caller.calls.size() >= kCallsOfOne) {
        refused.push_back(std::move(call));
        return refused;
    }
    caller.bytes += costOf(call);
    m_bytes += costOf(call);
    caller.calls.push_back(std::move(call));
    while (m_bytes > kBytesOfAll) {
        refused.push_back(takeLast(std::max_element(
            m_callers.begin(), m_callers.end(),
            [](const auto& left, const auto& right) { return left.second.bytes < right.second.bytes; })));
    }
    m_changed.notify_one();
    return refused;
}

Call CallQueue::takeLast(std::map<std::string, Waiting>::iterator caller) {
    Call last = std::move(caller->second.calls.back());
    caller->second.calls.pop_back();
    caller->second.bytes -= costOf(last);
    m_bytes -= costOf(last);
    if (caller->second.calls.empty()) {
        m_callers.erase(caller);
    }
    return last;
}

void CallQueue::admit(const std::string& sender, const TSCallerProperties& caller, uid_t user) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_callers.find(sender);
    if (found == m_callers.end() || found->second.isAdmitted) {
        return;
    }
    found->second.isAdmitted = true;
    found->second.properties = caller;
    found->second.user = user;
    std::deque<std::string>& callers = m_users[user];
    if (callers.empty()) {
        m_turns.push_back(user);
    }
    callers.push_back(sender);
    m_changed.notify_one();
}

std::deque<Call> CallQueue::drop(const std::string& sender) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_callers.find(sender);
    if (found == m_callers.end()) {
        return {};
    }
    m_bytes -= found->second.bytes;
    std::deque<Call> dropped = std::move(found->second.calls);
    m_callers.erase(found);
    return dropped;
}

std::vector<Call> CallQueue::dropAll() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Call> dropped;
    for (auto& [sender, caller] : m_callers) {
        std::move(caller.calls.begin(), caller.calls.end(), std::back_inserter(dropped));
    }
    m_callers.clear();
    m_bytes = 0;
    m_users.clear();
    m_turns.clear();
    return dropped;
}

void CallQueue::add(Departure departure) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_departures.push_back(std::move(departure));
    m_changed.notify_one();
}

void CallQueue::putDeparturesFirst() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_urgentDepartures = m_departures.size();
}

std::variant<Stop, Departure, Call> CallQueue::next() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        if (m_isStopped) {
            return Stop{};
        }
        if (!m_departures.empty() && (m_urgentDepartures > 0 || m_isDeparturesTurn || m_turns.empty())) {
            m_urgentDepartures -= m_urgentDepartures > 0 ? 1 : 0;
            Departure departure = std::move(m_departures.front());
            m_departures.pop_front();
            m_isDeparturesTurn = false;
            return departure;
        }
        m_isDeparturesTurn = true;
        Call call;
        if (takeTurn(call)) {
            return call;
        }
        if (m_departures.empty()) {
            m_changed.wait(lock, [this] { return m_isStopped || !m_departures.empty() || !m_turns.empty(); });
        }
    }
}

// Takes a call of the first caller of the first user, who then go to the end. False when that caller has
// left, or there is none.
bool CallQueue::takeTurn(Call& call) {
    if (m_turns.empty()) {
        return false;
    }
    const uid_t user = m_turns.front();
    m_turns.pop_front();
    const auto callers = m_users.find(user);
    const std::string name = std::move(callers->second.front());
    callers->second.pop_front();
    const auto caller = m_callers.find(name);
    const bool isThere = caller != m_callers.end();
    if (isThere) {
        Waiting& waiting = caller->second;
        call = std::move(waiting.calls.front());
        waiting.calls.pop_front();
        waiting.bytes -= costOf(call);
        m_bytes -= costOf(call);
        call.caller = waiting.properties;
        call.user = user;
        if (waiting.calls.empty()) {
            m_callers.erase(caller);
        } else {
            callers->second.push_back(name);
        }
    }
    if (callers->second.empty()) {
        m_users.erase(callers);
    } else {
        m_turns.push_back(user);
    }
    return isThere;
}

void CallQueue::stop() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isStopped = true;
    m_changed.notify_one();
}
