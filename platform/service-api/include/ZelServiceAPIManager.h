// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The IPC end of a process: its place on the bus and the thread that dispatches calls to it.
 */
#ifndef ZEL_SERVICE_API_MANAGER_H
#define ZEL_SERVICE_API_MANAGER_H

#include <memory>
#include <string>

#include "TICallListener.h"
#include "ZelApiLite.h"

/**
 * The IPC server of this process. Normal flow: Setup takes the bus name; observers are added to
 * TCIpcProperties; GetInstance and StartNativeAPI begin dispatching. On Linux the wire is one D-Bus method on
 * the system bus, `Call(s interface, i method, ay request) -> (ay reply)`.
 *
 * Dispatching ends only when the process exits, after the call being served: later than the objects of main,
 * earlier than static ones made before Setup. What the listener and the observers use must live that long.
 */
class ZelServiceAPIManager {
public:
    /**
     * Connects to the system bus and takes the bus name of @p configuration. Calls that arrive from now on
     * wait until StartNativeAPI. A configuration that wants calls on the default main context ends the
     * process: Linux has no such dispatching.
     *
     * @return false when there is no bus or the name is taken; the process then has no IPC, and may try again
     */
    static bool Setup(std::unique_ptr<ZelApiLite::IpcConfiguration> configuration);

    /**
     * The manager of this process.
     *
     * @param interfaceBusName  as given to Setup's configuration
     * @param objectPath        as given to Setup's configuration
     */
    static ZelServiceAPIManager& GetInstance(const std::string& interfaceBusName,
                                             const std::string& objectPath);

    ZelServiceAPIManager(const ZelServiceAPIManager&) = delete;
    ZelServiceAPIManager& operator=(const ZelServiceAPIManager&) = delete;

    /**
     * Takes ownership of @p listener and starts dispatching calls to it, one at a time, on a thread of the
     * library. Without a successful Setup the listener is kept and never called.
     */
    void StartNativeAPI(std::unique_ptr<TICallListener> listener);

private:
    struct Impl;

    ZelServiceAPIManager();
    ~ZelServiceAPIManager();

    std::unique_ptr<Impl> m_impl;
};

#endif
