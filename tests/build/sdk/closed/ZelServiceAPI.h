// SPDX-License-Identifier: Apache-2.0
// The service's client library as it may be: triggers, inputs and refusals are plain enumerations of its own.
#pragma once

#include <cstdint>
#include <vector>

enum ETriggerType {
    TRIGGER_TYPE_SOURCE_PLUG = 0,
    TRIGGER_TYPE_START_ZEL_MAIN = 1,
    TRIGGER_TYPE_NETWORK_TIME = 2,
    TRIGGER_TYPE_CLOCK_MODE = 3,
    TRIGGER_TYPE_SYNC_TIME = 4,
    TRIGGER_TYPE_STOLEN_TV = 5,
    TRIGGER_TYPE_OF_SOMEBODY_ELSE = 6
};

enum ESource { SOURCE_NONE = 0, SOURCE_AV1 = 1, SOURCE_AV2 = 2, SOURCE_HDMI8 = 47 };

enum ETerminateErrorType { TERMINATE_ERROR_NONE = 0, TERMINATE_ERROR_BUSY = 1 };

class TSNotifyData {
public:
    TSNotifyData();
    TSNotifyData(const TSNotifyData&) = default;
    TSNotifyData& operator=(const TSNotifyData&) = default;
    virtual ~TSNotifyData();

    int value;
    int source;
    int sourcePlugState;
    long long more;
};

struct TSZelData {
    TSZelData();

    bool needStandbyHandling;
    int pid;
    int more;
};

class IZelControl {
public:
    virtual int Terminate(std::vector<ETerminateErrorType>& errors, TSZelData& data) = 0;
    virtual int Notify(ETriggerType trigger, const TSNotifyData& data) = 0;
    virtual int Another() = 0;

protected:
    virtual ~IZelControl() = default;
};

class ZelServiceAPI {
public:
    static void CreateZelControl(IZelControl** control);
    static void DestroyZelControl();
};
