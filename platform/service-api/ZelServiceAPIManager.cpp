// SPDX-License-Identifier: Apache-2.0
#include "ZelServiceAPIManager.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "IpcServer.h"
#include "Log.h"

namespace {

IpcAddress addressOf(const ZelApiLite::IpcConfiguration& configuration) {
    return {configuration.MethodBusName(), configuration.ObjectPath(), configuration.InterfaceBusNameList()};
}

void refuseDefaultContext(const ZelApiLite::IpcConfiguration& configuration) {
    if (configuration.ProcessMethodCallInDefaultContext()) {
        const char* const text =
            "ZelServiceAPIManager::Setup: dispatching calls in the default context is not modelled on Linux";
        logError(text);
        (void)std::fprintf(stderr, "%s\n", text);
        std::abort();
    }
}

}  // namespace

struct ZelServiceAPIManager::Impl {
    std::mutex mutex;
    // Set by the first Setup that succeeds.
    std::unique_ptr<IpcServer> server;
    bool started = false;
    // Of a process without a server.
    std::unique_ptr<TICallListener> idleListener;
};

ZelServiceAPIManager::ZelServiceAPIManager() : m_impl(std::make_unique<Impl>()) {}

// Runs when the process exits. A call that itself ends the process still stands on everything here: then all
// stays.
ZelServiceAPIManager::~ZelServiceAPIManager() {
    if (m_impl->server != nullptr && m_impl->server->isServingHere()) {
        [[maybe_unused]] static const Impl* const kept = m_impl.release();
    }
}

ZelServiceAPIManager& ZelServiceAPIManager::GetInstance(const std::string& /*interfaceBusName*/,
                                                        const std::string& /*objectPath*/) {
    static ZelServiceAPIManager instance;
    return instance;
}

bool ZelServiceAPIManager::Setup(std::unique_ptr<ZelApiLite::IpcConfiguration> configuration) {
    refuseDefaultContext(*configuration);
    Impl& impl = *GetInstance({}, {}).m_impl;
    const std::lock_guard<std::mutex> lock(impl.mutex);
    if (impl.server != nullptr) {
        logError("Setup: this process is set up already");
        return false;
    }
    try {
        auto server = std::make_unique<IpcServer>(addressOf(*configuration));
        server->connect();
        impl.server = std::move(server);
    } catch (const std::exception& error) {
        logError("Setup: could not take the name " + configuration->MethodBusName() +
                 " on the system bus: " + error.what());
    }
    return impl.server != nullptr;
}

void ZelServiceAPIManager::StartNativeAPI(std::unique_ptr<TICallListener> listener) {
    std::unique_lock<std::mutex> lock(m_impl->mutex);
    if (m_impl->started) {
        lock.unlock();
        logError("StartNativeAPI: calls are dispatched already, to the listener given first");
    } else if (m_impl->server == nullptr) {
        m_impl->idleListener.swap(listener);
    } else {
        m_impl->started = true;
        lock.unlock();
        // The listener is asked for its interface: not under our lock.
        m_impl->server->start(std::move(listener));
    }
}
