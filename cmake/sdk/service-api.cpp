// SPDX-License-Identifier: Apache-2.0
// What the daemon uses of the service's client libraries. Compiled at configuration, never run.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "TCApiAssert.h"
#include "TCIpcProperties.h"
#include "TCMessageBuffer.h"
#include "TICallListener.h"
#include "ZelApiLite.h"
#include "ZelServiceAPI.h"
#include "ZelServiceAPIManager.h"

class Configuration : public ZelApiLite::IpcConfiguration {
public:
    using ZelApiLite::IpcConfiguration::IpcConfiguration;
    bool ProcessMethodCallInDefaultContext() const override { return false; }
};

class Observer : public TIIPCCallersObserver {
public:
    void SetCurrentCaller(const TSCallerProperties& caller) override {
        m_text = caller.progName + std::to_string(caller.pid);
    }
    void ClearCurrentCaller() override {}
    void OwnerRemoved(const std::string& connectionName, std::uint32_t pid) override {
        m_text = connectionName + std::to_string(pid);
    }

private:
    std::string m_text;
};

class Listener : public TICallListener {
public:
    std::string GetInterfaceName() override { return "interface"; }
    bool OnCallReceived(int method, TCMessageBuffer& request, TCMessageBuffer& reply) override {
        int number = 0;
        long long longNumber = 0;
        request.ReadInt(&number, 0U);
        request.ReadLongLong(&longNumber, 4U);
        request.ReadConcatenated(4UL, &number, 12U);
        reply.PushInt(method);
        reply.WriteConcatenated(4UL, &number, -1);
        reply.Resize(16U);
        return *static_cast<char*>(reply.GetAsVoidFromOffset(0U)) != 0 || request.m_senderName.empty();
    }
};

// By reference or by pointer.
static void start(ZelServiceAPIManager& manager) {
    manager.StartNativeAPI(std::make_unique<Listener>());
}
static void start(ZelServiceAPIManager* manager) {
    start(*manager);
}

bool use(ETriggerType trigger) {
    const std::string text = "text";
    Observer observer;
    TCIpcProperties::Instance().AddCallersObserver(observer);
    TCIpcProperties::Instance().RemoveCallersObserver(observer);
    const bool result = ZelServiceAPIManager::Setup(std::make_unique<Configuration>(text, text));
    start(ZelServiceAPIManager::GetInstance(text, text));

    TSNotifyData notification;
    notification.source = notification.sourcePlugState = notification.value = 1;
    std::vector<ETerminateErrorType> errors;
    TSZelData data;
    IZelControl* control = nullptr;
    ZelServiceAPI::CreateZelControl(&control);
    const int outcome = control->Notify(trigger, notification) + control->Terminate(errors, data);
    ZelServiceAPI::DestroyZelControl();

    _TCApiAssert("expression", "file", 1UL, nullptr);
    return result && data.needStandbyHandling && data.pid == outcome && ZelApiLite::LiteUtility::IsDebug() &&
           ZelApiLite::LiteUtility::IsPerf();
}
