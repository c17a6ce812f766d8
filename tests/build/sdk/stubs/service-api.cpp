// SPDX-License-Identifier: Apache-2.0
// Results have no part in a function's symbol, so these stand for every variant of the headers.
#include <cstdlib>
#include <utility>

#include "TCApiAssert.h"
#include "TCIpcProperties.h"
#include "TCMessageBuffer.h"
#include "ZelApiLite.h"
#include "ZelServiceAPI.h"
#include "ZelServiceAPIManager.h"

void _TCApiAssert(const char*, const char*, unsigned long, const char*) {}

TCIpcProperties& TCIpcProperties::Instance() {
    std::abort();
}
void TCIpcProperties::AddCallersObserver(TIIPCCallersObserver&) {}
void TCIpcProperties::RemoveCallersObserver(TIIPCCallersObserver&) {}

void TCMessageBuffer::PushInt(int) {}
bool TCMessageBuffer::WriteConcatenated(unsigned long, void*, int) {
    return false;
}
bool TCMessageBuffer::ReadInt(int*, unsigned int) {
    return false;
}
bool TCMessageBuffer::ReadLongLong(long long*, unsigned int) {
    return false;
}
bool TCMessageBuffer::ReadConcatenated(unsigned long, void*, unsigned int) {
    return false;
}
void TCMessageBuffer::Resize(unsigned int) {}
void* TCMessageBuffer::GetAsVoidFromOffset(unsigned int) {
    return nullptr;
}

namespace ZelApiLite {

bool LiteUtility::IsDebug() {
    return false;
}
bool LiteUtility::IsPerf() {
    return false;
}
IpcConfiguration::IpcConfiguration(std::string, std::string) {}
bool IpcConfiguration::ProcessMethodCallInDefaultContext() const {
    return false;
}
std::string IpcConfiguration::MethodBusName() const {
    return {};
}
std::vector<std::string> IpcConfiguration::InterfaceBusNameList() const {
    return {};
}
long long IpcConfiguration::StartCallTimestamp() const {
    return 0;
}
std::string IpcConfiguration::GetServiceProcessName() const {
    return {};
}

}  // namespace ZelApiLite

TSNotifyData::TSNotifyData() : source(0), sourcePlugState(0), value(0) {}
TSNotifyData::~TSNotifyData() = default;
TSZelData::TSZelData() : pid(-1), needStandbyHandling(false) {}
void ZelServiceAPI::CreateZelControl(IZelControl**) {}
void ZelServiceAPI::DestroyZelControl() {}

bool ZelServiceAPIManager::Setup(std::unique_ptr<ZelApiLite::IpcConfiguration>) {
    return false;
}
ZelServiceAPIManager& ZelServiceAPIManager::GetInstance(const std::string&, const std::string&) {
    std::abort();
}
void ZelServiceAPIManager::StartNativeAPI(std::unique_ptr<TICallListener>) {}
