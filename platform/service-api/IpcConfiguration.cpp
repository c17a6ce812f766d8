// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "ZelApiLite.h"

namespace {

[[noreturn]] void abortUnmodelled(const char* function) {
    (void)std::fprintf(stderr, "%s is not modelled on Linux\n", function);
    std::abort();
}

}  // namespace

namespace ZelApiLite {

IpcConfiguration::IpcConfiguration(std::string interfaceBusName, std::string objectPath)
    : m_interfaceBusName(std::move(interfaceBusName)), m_objectPath(std::move(objectPath)) {}

bool IpcConfiguration::ProcessMethodCallInDefaultContext() const {
    return false;
}

std::string IpcConfiguration::MethodBusName() const {
    return "com.brenlow.ZELLite";
}

std::vector<std::string> IpcConfiguration::InterfaceBusNameList() const {
    return {m_interfaceBusName};
}

long long IpcConfiguration::StartCallTimestamp() const {
    abortUnmodelled("ZelApiLite::IpcConfiguration::StartCallTimestamp");
}

std::string IpcConfiguration::GetServiceProcessName() const {
    abortUnmodelled("ZelApiLite::IpcConfiguration::GetServiceProcessName");
}

}  // namespace ZelApiLite
