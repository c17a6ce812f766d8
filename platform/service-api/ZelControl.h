// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The control of the service, over D-Bus.
 */
#ifndef SERVICE_API_ZEL_CONTROL_H
#define SERVICE_API_ZEL_CONTROL_H

#include <sdbus-c++/sdbus-c++.h>

#include <functional>
#include <memory>
#include <mutex>

#include "ZelServiceAPI.h"

/** Calls the service over a connection of its own. Callable from any thread; calls wait for one another. */
class ZelControl : public IZelControl {
public:
    explicit ZelControl(std::unique_ptr<sdbus::IConnection> connection);

    /** Makes the calls from now on use @p connection; one that is under way ends on the connection before. */
    void replaceConnection(std::unique_ptr<sdbus::IConnection> connection);

    int Terminate(std::vector<ETerminateErrorType>& errors, TSZelData& data) override;
    int Notify(ETriggerType trigger, const TSNotifyData& data) override;

private:
    struct Channel {
        std::mutex mutex;
        std::unique_ptr<sdbus::IConnection> connection;
    };

    std::shared_ptr<Channel> channel();
    int call(const char* method, const std::function<void(sdbus::MethodCall&)>& fill,
             const std::function<int(sdbus::MethodReply&)>& read);

    std::mutex m_mutex;
    std::shared_ptr<Channel> m_channel;
};

#endif
