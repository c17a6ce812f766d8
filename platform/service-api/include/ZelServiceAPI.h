// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Control of the supervised service, zel-daemon.
 */
#ifndef ZEL_SERVICE_API_H
#define ZEL_SERVICE_API_H

#include <cstdint>
#include <vector>

/** Why the service is notified. The numbers are agreed between a sender and the service; this library carries
 * them. */
enum ETriggerType : int;

/** Why the service refused to terminate. The numbers are the service's own; this library carries them. */
enum ETerminateErrorType : int {};

/** What goes with a trigger. Polymorphic so that senders may pass a derived record; every field is 0 by
 * default. */
class TSNotifyData {
public:
    TSNotifyData();
    TSNotifyData(const TSNotifyData&) = default;
    TSNotifyData& operator=(const TSNotifyData&) = default;
    virtual ~TSNotifyData();

    /** Number of the external input. */
    std::int32_t source;
    /** Plug state of that input; 0 is unplugged. */
    std::int32_t sourcePlugState;
    /** The integer that goes with the trigger. */
    std::int32_t value;
};

/** What the service tells of itself when it agrees to terminate. */
struct TSZelData {
    TSZelData();

    /** Its process id; -1 by default. */
    std::int32_t pid;
    /** Whether its client must watch for standby from now on; false by default. */
    bool needStandbyHandling;
};

/** The control interface of the running service. Both operations block until the service has answered. */
class IZelControl {
public:
    virtual ~IZelControl() = default;

    /**
     * Asks the service to terminate.
     *
     * @param errors  gets the reasons of a refusal
     * @param data    gets what the service tells of itself
     * @return below 0 when the service could not be reached or did not answer within 25 s, 1 when it
     * terminates, any other value when it refuses
     */
    virtual int Terminate(std::vector<ETerminateErrorType>& errors, TSZelData& data) = 0;

    /**
     * Delivers a trigger.
     *
     * @return below 0 when the service could not be reached or did not answer within 25 s, 1 on success, any
     * other value when the service took the trigger without success
     */
    virtual int Notify(ETriggerType trigger, const TSNotifyData& data) = 0;
};

/** Access to the control. Callable from any thread. */
class ZelServiceAPI {
public:
    /**
     * Gives the control of the running service, waiting up to 10 s for one that is starting, or for a dying
     * one to be replaced. The control belongs to the library and is valid until DestroyZelControl.
     *
     * @param control  gets the control, or null when no service runs nor is about to
     */
    static void CreateZelControl(IZelControl** control);

    /** Releases the control, if there is one. Nobody may be using it then, nor later. */
    static void DestroyZelControl();
};

#endif
