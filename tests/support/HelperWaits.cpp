// SPDX-License-Identifier: Apache-2.0
#include "support/HelperWaits.h"

#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <cmath>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <set>
#include <utility>

namespace {

std::mutex mutex;
std::set<const void*> notified;
std::vector<long> requested;
int notifications = 0;
std::function<void()> notifyHook;
int toEnd = 0;

bool takeEnd() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (toEnd == 0) {
        return false;
    }
    --toEnd;
    return true;
}

bool takeNotification(const void* condition) {
    const std::lock_guard<std::mutex> lock(mutex);
    return notified.erase(condition) != 0;
}

void noteRequest(clockid_t clock, const timespec& until) {
    constexpr double kNano = 1e-9;
    timespec now{};
    clock_gettime(clock, &now);
    const double seconds = static_cast<double>(until.tv_sec - now.tv_sec) +
                           kNano * static_cast<double>(until.tv_nsec - now.tv_nsec);
    const std::lock_guard<std::mutex> lock(mutex);
    requested.push_back(std::lround(seconds));
}

timespec soon(clockid_t clock) {
    constexpr long kStep = 5'000'000;
    constexpr long kSecond = 1'000'000'000;
    timespec time{};
    clock_gettime(clock, &time);
    time.tv_nsec += kStep;
    time.tv_sec += time.tv_nsec / kSecond;
    time.tv_nsec %= kSecond;
    return time;
}

}  // namespace

void HelperWaits::end(int count) {
    const std::lock_guard<std::mutex> lock(mutex);
    toEnd = count;
}

std::vector<long> HelperWaits::seconds() {
    const std::lock_guard<std::mutex> lock(mutex);
    return requested;
}

void HelperWaits::waitForNotifyAll() {
    for (;;) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (notifications > 0) {
                return;
            }
        }
        sched_yield();
    }
}

void HelperWaits::afterNotifyAll(std::function<void()> hook) {
    const std::lock_guard<std::mutex> lock(mutex);
    notifyHook = std::move(hook);
}

void HelperWaits::reset() {
    const std::lock_guard<std::mutex> lock(mutex);
    notifyHook = nullptr;
    requested.clear();
    notifications = 0;
    toEnd = 0;
}

extern "C" int __real_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* lock,
                                             clockid_t clock, const timespec* until);
extern "C" int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* lock,
                                             clockid_t clock, const timespec* until);
extern "C" int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* lock,
                                             clockid_t clock, const timespec* until) {
    noteRequest(clock, *until);
    for (;;) {
        if (takeNotification(condition)) {
            return 0;
        }
        if (takeEnd()) {
            return ETIMEDOUT;
        }
        const timespec next = soon(clock);
        __real_pthread_cond_clockwait(condition, lock, clock, &next);
    }
}

// std::condition_variable::notify_all and its destructor.
extern "C" void __real__ZNSt18condition_variable10notify_allEv(std::condition_variable* condition);
extern "C" void __wrap__ZNSt18condition_variable10notify_allEv(std::condition_variable* condition);
extern "C" void __wrap__ZNSt18condition_variable10notify_allEv(std::condition_variable* condition) {
    std::function<void()> hook;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        notified.insert(condition);
        ++notifications;
        hook = std::exchange(notifyHook, nullptr);
    }
    __real__ZNSt18condition_variable10notify_allEv(condition);
    if (hook) {
        hook();
    }
}

extern "C" void __real__ZNSt18condition_variableD1Ev(std::condition_variable* condition);
extern "C" void __wrap__ZNSt18condition_variableD1Ev(std::condition_variable* condition);
extern "C" void __wrap__ZNSt18condition_variableD1Ev(std::condition_variable* condition) {
    takeNotification(condition);
    __real__ZNSt18condition_variableD1Ev(condition);
}
