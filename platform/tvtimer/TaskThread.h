// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A thread that does one thing after the other.
 */
#ifndef TVTIMER_TASK_THREAD_H
#define TVTIMER_TASK_THREAD_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

/** Carries out tasks in the order in which they were given, as long as the process lives. */
class TaskThread {
public:
    /** Starts the thread. Throws when it can't. */
    TaskThread();
    ~TaskThread() = delete;
    TaskThread(const TaskThread&) = delete;
    TaskThread& operator=(const TaskThread&) = delete;

    /** Adds a task, which must not throw. Callable from any thread, also from a task. */
    void add(std::function<void()> task);

private:
    [[noreturn]] void run();
    std::function<void()> next();

    std::mutex m_mutex;
    std::condition_variable m_added;
    std::deque<std::function<void()>> m_tasks;
};

#endif
