// SPDX-License-Identifier: Apache-2.0
#include "TCIpcProperties.h"

#include <algorithm>
#include <exception>
#include <mutex>

#include "CallersObservers.h"
#include "Log.h"

namespace {

// A fault of one observer must reach neither the others nor the thread that dispatches.
template <typename Call>
void guarded(const char* operation, Call call) {
    try {
        call();
    } catch (const std::exception& error) {
        logError(std::string("an observer threw in ") + operation + ": " + error.what());
    }
}

}  // namespace

struct TCIpcProperties::Impl {
    std::mutex mutex;
    std::vector<TIIPCCallersObserver*> observers;
};

TCIpcProperties::TCIpcProperties() : m_impl(std::make_unique<Impl>()) {}

TCIpcProperties::~TCIpcProperties() = default;

// The thread that dispatches may outlive the static objects of the process by a moment: this one must never
// go.
TCIpcProperties& TCIpcProperties::Instance() {
    static auto* const instance = new TCIpcProperties;
    return *instance;
}

void TCIpcProperties::AddCallersObserver(TIIPCCallersObserver& observer) {
    const std::lock_guard<std::mutex> lock(m_impl->mutex);
    m_impl->observers.push_back(&observer);
}

void TCIpcProperties::RemoveCallersObserver(TIIPCCallersObserver& observer) {
    const std::lock_guard<std::mutex> lock(m_impl->mutex);
    auto& observers = m_impl->observers;
    observers.erase(std::remove(observers.begin(), observers.end(), &observer), observers.end());
}

std::vector<TIIPCCallersObserver*> CallersObservers::all() {
    TCIpcProperties::Impl& impl = *TCIpcProperties::Instance().m_impl;
    const std::lock_guard<std::mutex> lock(impl.mutex);
    return impl.observers;
}

// One observer's hook may remove another.
bool CallersObservers::isPresent(const TIIPCCallersObserver* observer) {
    const auto present = all();
    return std::find(present.begin(), present.end(), observer) != present.end();
}

template <typename Hook>
void CallersObservers::tellAll(Hook hook) {
    for (TIIPCCallersObserver* observer : all()) {
        if (isPresent(observer)) {
            hook(*observer);
        }
    }
}

void CallersObservers::setCurrentCaller(const TSCallerProperties& caller) {
    tellAll([&caller](TIIPCCallersObserver& observer) { observer.SetCurrentCaller(caller); });
}

void CallersObservers::clearCurrentCaller() {
    tellAll([](TIIPCCallersObserver& observer) {
        guarded("ClearCurrentCaller", [&observer] { observer.ClearCurrentCaller(); });
    });
}

void CallersObservers::ownerRemoved(const std::string& connectionName, std::uint32_t pid) {
    tellAll([&connectionName, pid](TIIPCCallersObserver& observer) {
        guarded("OwnerRemoved", [&] { observer.OwnerRemoved(connectionName, pid); });
    });
}
