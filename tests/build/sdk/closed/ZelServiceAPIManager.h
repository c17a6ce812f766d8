// SPDX-License-Identifier: Apache-2.0
// The manager as it may be: its instance comes by pointer.
#pragma once

#include <memory>
#include <string>

#include "TICallListener.h"
#include "ZelApiLite.h"

class ZelServiceAPIManager {
public:
    static bool Setup(std::unique_ptr<ZelApiLite::IpcConfiguration> configuration);
    static ZelServiceAPIManager* GetInstance(const std::string& interfaceBusName,
                                             const std::string& objectPath);
    void StartNativeAPI(std::unique_ptr<TICallListener> listener);
};
