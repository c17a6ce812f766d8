// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeSessionControl.h"

#include <stdexcept>

#include "SessionControl.h"
#include "fakes/Actions.h"

namespace fakes {

bool FakeSessionControl::openResult = true;
bool FakeSessionControl::closeResult = true;
bool FakeSessionControl::throwsAtBirth = false;
std::string FakeSessionControl::debugInfo;
FakeSessionControl::Trace FakeSessionControl::lastTrace;

}  // namespace fakes

TCSessionControl::TCSessionControl(TCZelDaemonStateManager& stateManager) : m_stateManager(stateManager) {
    fakes::Actions::add("SessionControl made");
    if (fakes::FakeSessionControl::throwsAtBirth) {
        throw std::runtime_error("no session control");
    }
}

TCSessionControl::~TCSessionControl() {
    fakes::Actions::add("SessionControl gone");
}

bool TCSessionControl::Open(const std::string& sessionId, const std::string& progName,
                            const std::string& pid) {
    fakes::Actions::add("SessionControl::Open " + sessionId + " " + progName + " " + pid);
    return fakes::FakeSessionControl::openResult;
}

bool TCSessionControl::Close(const std::string& sessionId) {
    fakes::Actions::add("SessionControl::Close " + sessionId);
    return fakes::FakeSessionControl::closeResult;
}

void TCSessionControl::CloseOnCrash(const std::string& sessionId) {
    fakes::Actions::add("SessionControl::CloseOnCrash " + sessionId);
}

std::int64_t TCSessionControl::t_getTimeMs() {
    return 0;
}

void TCSessionControl::t_removeOldRecords() {}

void TCSessionControl::CheckPIDs() {
    fakes::Actions::add("SessionControl::CheckPIDs");
}

void TCSessionControl::OpenDebugTrace(const std::string& sessionId, std::int64_t traceId,
                                      const std::string& stackTrace, const std::string& processName,
                                      const std::string& progName, const std::string& pid,
                                      ESessionControl_ProgLang language) {
    fakes::Actions::add("SessionControl::OpenDebugTrace");
    fakes::FakeSessionControl::lastTrace = {sessionId, traceId, stackTrace, processName,
                                            progName,  pid,     language};
}

void TCSessionControl::CloseDebugTrace(const std::string& sessionId, std::int64_t traceId) {
    fakes::Actions::add("SessionControl::CloseDebugTrace");
    fakes::FakeSessionControl::lastTrace = {};
    fakes::FakeSessionControl::lastTrace.sessionId = sessionId;
    fakes::FakeSessionControl::lastTrace.traceId = traceId;
}

bool TCSessionControl::TryTerminateZelWithAppLaunch(bool alwaysLaunchApp) {
    fakes::Actions::add("SessionControl::TryTerminateZelWithAppLaunch " +
                        std::to_string(static_cast<int>(alwaysLaunchApp)));
    return true;
}

void TCSessionControl::WriteDebugInfo(const std::function<void(std::string& piece)>& write) {
    const std::string& document = fakes::FakeSessionControl::debugInfo;
    std::string first = document.substr(0, document.size() / 2);
    std::string second = document.substr(document.size() / 2);
    write(first);
    write(second);
}

std::string TCSessionControl::GetDebugInfo() {
    return fakes::FakeSessionControl::debugInfo;
}
