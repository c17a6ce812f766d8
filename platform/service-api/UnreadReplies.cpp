// SPDX-License-Identifier: Apache-2.0
#include "UnreadReplies.h"

#include <algorithm>
#include <iterator>

bool UnreadReplies::refuses(std::int32_t method, uid_t user) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto unread = m_users.find(user);
    return user != 0 && m_largeMethods.count(method) != 0 && unread != m_users.end() &&
           unread->second >= kOfOneUser;
}

void UnreadReplies::sent(const std::string& caller, uid_t user, std::int32_t method, std::size_t size) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (size < kLarge) {
        m_largeMethods.erase(method);
        return;
    }
    m_largeMethods.insert(method);
    const auto debt = m_callers.try_emplace(caller).first;
    debt->second.user = user;
    ++debt->second.replies;
    setSize(debt, debt->second.size + size);
}

void UnreadReplies::keeps(const std::string& caller, std::uint64_t replies, std::size_t size) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto debt = m_callers.find(caller);
    if (debt == m_callers.end() || debt->second.replies != replies) {
        return;
    }
    // The bus counts the caller's other messages too, so less than a large reply counts as nothing.
    const std::size_t left = size < kLarge ? 0 : std::min(size, debt->second.size);
    setSize(debt, left);
    if (left == 0) {
        m_callers.erase(debt);
    }
}

void UnreadReplies::setSize(std::map<std::string, Debt>::iterator debt, std::size_t size) {
    const auto user = m_users.try_emplace(debt->second.user).first;
    user->second = user->second - debt->second.size + size;
    debt->second.size = size;
    if (user->second == 0) {
        m_users.erase(user);
    }
}

std::vector<std::pair<std::string, std::uint64_t>> UnreadReplies::callers() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::pair<std::string, std::uint64_t>> callers;
    std::transform(m_callers.begin(), m_callers.end(), std::back_inserter(callers),
                   [](const auto& debt) { return std::make_pair(debt.first, debt.second.replies); });
    return callers;
}

void UnreadReplies::forget(const std::string& caller) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (const auto debt = m_callers.find(caller); debt != m_callers.end()) {
        setSize(debt, 0);
        m_callers.erase(debt);
    }
}

void UnreadReplies::clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_callers.clear();
    m_users.clear();
}
