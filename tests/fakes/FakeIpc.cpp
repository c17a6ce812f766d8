// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeIpc.h"

#include <stdexcept>
#include <string>

#include "TCIpcProperties.h"
#include "ZelServiceAPIManager.h"
#include "fakes/Actions.h"

namespace fakes {
namespace {

std::unique_ptr<TICallListener> keptListener;

}  // namespace

std::deque<bool> FakeIpc::setupResults;
bool FakeIpc::removalThrows = false;

void FakeIpc::dropListener() {
    keptListener.reset();
}

}  // namespace fakes

struct ZelServiceAPIManager::Impl {};
ZelServiceAPIManager::ZelServiceAPIManager() = default;
ZelServiceAPIManager::~ZelServiceAPIManager() = default;

bool ZelServiceAPIManager::Setup(std::unique_ptr<ZelApiLite::IpcConfiguration> configuration) {
    fakes::Actions::add("Setup " + configuration->InterfaceBusNameList().at(0) + " " +
                        configuration->ObjectPath());
    if (fakes::FakeIpc::setupResults.empty()) {
        return true;
    }
    const bool result = fakes::FakeIpc::setupResults.front();
    fakes::FakeIpc::setupResults.pop_front();
    return result;
}

ZelServiceAPIManager& ZelServiceAPIManager::GetInstance(const std::string& interfaceBusName,
                                                        const std::string& objectPath) {
    static ZelServiceAPIManager manager;
    fakes::Actions::add("GetInstance " + interfaceBusName + " " + objectPath);
    return manager;
}

void ZelServiceAPIManager::StartNativeAPI(std::unique_ptr<TICallListener> listener) {
    fakes::Actions::add("StartNativeAPI " + listener->GetInterfaceName());
    fakes::keptListener = std::move(listener);
}

struct TCIpcProperties::Impl {};
TCIpcProperties::TCIpcProperties() = default;
TCIpcProperties::~TCIpcProperties() = default;

TCIpcProperties& TCIpcProperties::Instance() {
    static TCIpcProperties properties;
    return properties;
}

void TCIpcProperties::AddCallersObserver(TIIPCCallersObserver& /*observer*/) {
    fakes::Actions::add("AddCallersObserver");
}

void TCIpcProperties::RemoveCallersObserver(TIIPCCallersObserver& /*observer*/) {
    fakes::Actions::add("RemoveCallersObserver");
    if (fakes::FakeIpc::removalThrows) {
        throw std::runtime_error("no removal");
    }
}
