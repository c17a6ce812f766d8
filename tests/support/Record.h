// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What happened, in order, told by several threads and waited for by one.
 */
#ifndef TESTS_SUPPORT_RECORD_H
#define TESTS_SUPPORT_RECORD_H

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

class Record {
public:
    void add(const std::string& event) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(event);
        m_changed.notify_all();
    }

    /** Waits, with a limit, until the event has happened. @return whether it has */
    bool waitFor(const std::string& event, std::chrono::seconds limit = std::chrono::seconds(20)) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, limit, [&] { return has(event); });
    }

    std::vector<std::string> events() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }

    /** The events that begin with @p start. */
    std::vector<std::string> eventsWith(const std::string& start) {
        std::vector<std::string> found;
        for (const std::string& event : events()) {
            if (event.rfind(start, 0) == 0) {
                found.push_back(event);
            }
        }
        return found;
    }

private:
    bool has(const std::string& event) const {
        return std::find(m_events.begin(), m_events.end(), event) != m_events.end();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_events;
};

#endif
