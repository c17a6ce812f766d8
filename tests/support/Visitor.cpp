// SPDX-License-Identifier: Apache-2.0
#include "support/Visitor.h"

#include <pthread.h>

#include <cerrno>
#include <utility>

#include "support/Wait.h"

namespace {

// Set when a visitor's thread finds a mutex taken; null on every other thread.
thread_local std::atomic<bool>* blocks = nullptr;

}  // namespace

extern "C" int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (blocks == nullptr) {
        return __real_pthread_mutex_lock(mutex);
    }
    const int result = pthread_mutex_trylock(mutex);
    if (result != EBUSY) {
        return result;
    }
    *blocks = true;
    return __real_pthread_mutex_lock(mutex);
}

Visitor::~Visitor() {
    leave();
}

bool Visitor::mustWait(std::function<void()> call) {
    m_thread = std::thread([this, call = std::move(call)] {
        blocks = &m_blocks;
        call();
        m_hasReturned = true;
    });
    becomesTrue([this] { return m_blocks || m_hasReturned; });
    return m_blocks && !m_hasReturned;
}

void Visitor::leave() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
}
