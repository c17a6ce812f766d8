// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A limit that several waits share.
 */
#ifndef PLATFORM_COMMON_DEADLINE_H
#define PLATFORM_COMMON_DEADLINE_H

#include <algorithm>
#include <chrono>

class Deadline {
public:
    /** Begins to count. */
    explicit Deadline(std::chrono::milliseconds limit) : m_end(std::chrono::steady_clock::now() + limit) {}

    /** Whether the limit is reached. */
    bool isOver() const { return std::chrono::steady_clock::now() >= m_end; }

    /** What is left, but never nothing: as a time-out of a D-Bus call 0 would stand for the default one. */
    std::chrono::microseconds remaining() const {
        const auto left = m_end - std::chrono::steady_clock::now();
        return std::max(std::chrono::duration_cast<std::chrono::microseconds>(left),
                        std::chrono::microseconds(1000));
    }

private:
    std::chrono::steady_clock::time_point m_end;
};

#endif
