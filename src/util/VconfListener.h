// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A television reported stolen is blocked by the service: each change of the setting that tells so starts it.
 */
#ifndef ZEL_LITE_VCONF_LISTENER_H
#define ZEL_LITE_VCONF_LISTENER_H

#include <vconf.h>

#include "IZelDaemonStateListener.h"

class TCZelDaemonStateManager;

/** Watches whether the service runs or not; the setting's value at start is not reported. Lives on the main
 * thread. */
class TCVconfListener : public IZelDaemonStateListener {
public:
    explicit TCVconfListener(TCZelDaemonStateManager& manager);
    /** Leaves the setting watched: the loop does not run any more. */
    ~TCVconfListener() override;
    TCVconfListener(const TCVconfListener&) = delete;
    TCVconfListener& operator=(const TCVconfListener&) = delete;

    void OnStart() override;
    void OnTerminate() override;
    void OnTerminateSuccess(const TSZelData& data) override;

    /** Tells the service whether the set is to be blocked. @param userData  the listener */
    static void OnStolenTVVconfChanged(keynode_t* node, void* userData);

    /** Whether the set's first set-up is still to come: never, as long as its setting can be read. */
    static bool IsNeedSetupWizard();

private:
    TCZelDaemonStateManager& m_stateManager;
};

#endif
