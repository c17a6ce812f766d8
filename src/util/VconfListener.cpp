// SPDX-License-Identifier: Apache-2.0
#include "VconfListener.h"

#include <cstdlib>
#include <memory>
#include <string>

#include "Diagnostics.h"
#include "TriggerTypes.h"
#include "ZelDaemonStateManager.h"

namespace {

constexpr const char* kBlockedSerial = "db/tv-viewer/blocked_serial";
constexpr const char* kNeedSetupWizard = "db/boot/need_setup_wizard";
constexpr const char* kNotBlocked = "tv_ok";

}  // namespace

TCVconfListener::TCVconfListener(TCZelDaemonStateManager& manager) : m_stateManager(manager) {
    vconf_notify_key_changed(kBlockedSerial, OnStolenTVVconfChanged, this);
    m_stateManager.RegisterListener(this);
}

TCVconfListener::~TCVconfListener() {
    m_stateManager.UnregisterListener(this);
}

void TCVconfListener::OnStart() {}

void TCVconfListener::OnTerminate() {}

void TCVconfListener::OnTerminateSuccess(const TSZelData& /*data*/) {}

void TCVconfListener::OnStolenTVVconfChanged(keynode_t* /*node*/, void* userData) {
    const std::unique_ptr<char, decltype(&std::free)> text(vconf_get_str(kBlockedSerial), &std::free);
    if (text == nullptr) {
        return;
    }
    const std::string serial = text.get();
    const bool isStolen = !serial.empty() && serial != kNotBlocked;
    TSNotifyData data;
    data.value = isStolen && !IsNeedSetupWizard() ? 1 : 0;
    if (static_cast<const TCVconfListener*>(userData)->m_stateManager.Notify(TRIGGER_TYPE_STOLEN_TV, data)) {
        ZEL_LOG_DEBUG("Notified ZEL-MAIN! -> vconf[%s]", serial.c_str());
    } else {
        ZEL_LOG_ERROR("ZEL-MAIN notify FAILED! -> vconf[%s]", serial.c_str());
    }
}

// A key that can be read never asks for the wizard, whatever it holds, so a stolen set is blocked also while
// its set-up is still to come.
bool TCVconfListener::IsNeedSetupWizard() {
    int needed = 0;
    if (vconf_get_int(kNeedSetupWizard, &needed) == 0) {
        return false;
    }
    return needed != 0;
}
