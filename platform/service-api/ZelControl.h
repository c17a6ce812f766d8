// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The control of the service, over D-Bus.
 */
#ifndef SERVICE_API_ZEL_CONTROL_H
#define SERVICE_API_ZEL_CONTROL_H

#include <functional>

#include "ControlConnection.h"
#include "ZelServiceAPI.h"

/**
 * Calls the service, each time over a connection that ends with the call: between calls there is none that
 * strangers could fill. Callable from any thread.
 */
class ZelControl : public IZelControl {
public:
    int Terminate(std::vector<ETerminateErrorType>& errors, TSZelData& data) override;
    int Notify(ETriggerType trigger, const TSNotifyData& data) override;

private:
    static int call(const char* method, const std::function<void(sd_bus_message*)>& fill,
                    const std::function<int(sd_bus_message*)>& read);
};

#endif
