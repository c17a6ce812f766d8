// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeSessionControl.h"

#include <stdexcept>

#include "SessionControl.h"
#include "fakes/Actions.h"

namespace fakes {

bool FakeSessionControl::openResult = true;
bool FakeSessionControl::closeResult = true;
bool FakeSessionControl::throwsAtBirth = false;

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
