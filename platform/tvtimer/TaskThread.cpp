// SPDX-License-Identifier: Apache-2.0
#include "TaskThread.h"

#include <thread>
#include <utility>

TaskThread::TaskThread() {
    std::thread([this] { run(); }).detach();
}

void TaskThread::add(std::function<void()> task) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_tasks.push_back(std::move(task));
    m_added.notify_one();
}

void TaskThread::run() {
    for (;;) {
        next()();
    }
}

std::function<void()> TaskThread::next() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_added.wait(lock, [this] { return !m_tasks.empty(); });
    std::function<void()> task = std::move(m_tasks.front());
    m_tasks.pop_front();
    return task;
}
