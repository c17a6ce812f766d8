// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The light part of the service-API library: build properties of the set and the configuration of IPC.
 */
#ifndef ZEL_API_LITE_H
#define ZEL_API_LITE_H

#include <string>
#include <vector>

namespace ZelApiLite {

/** What kind of build the set runs. Callable from any thread. */
class LiteUtility {
public:
    /** Whether this is a debug set: on Linux, whether /etc/debug exists. */
    static bool IsDebug();

    /** Whether this is a performance-test set: on Linux, whether /etc/perf exists. */
    static bool IsPerf();
};

/** How a process offers itself over IPC. Given to ZelServiceAPIManager::Setup; overridden where a process
 * differs. */
class IpcConfiguration {
public:
    /**
     * @param interfaceBusName  D-Bus interface under which the IPC method is found
     * @param objectPath        D-Bus object that carries it
     */
    IpcConfiguration(std::string interfaceBusName, std::string objectPath);
    virtual ~IpcConfiguration() = default;

    /**
     * Whether calls are dispatched on the GLib default main context. False here: Linux has only the thread of
     * the library, and ZelServiceAPIManager::Setup ends the process when an overriding configuration says
     * true.
     */
    virtual bool ProcessMethodCallInDefaultContext() const;

    /** Bus name that the process takes, "com.brenlow.ZELLite". */
    virtual std::string MethodBusName() const;

    /** D-Bus interfaces under which the IPC method is found: the one given to the constructor. */
    virtual std::vector<std::string> InterfaceBusNameList() const;

    /** Not modelled on Linux: ends the process, naming itself. */
    virtual long long StartCallTimestamp() const;

    /** Not modelled on Linux: ends the process, naming itself. */
    virtual std::string GetServiceProcessName() const;

    /** D-Bus object that carries the IPC method. */
    const std::string& ObjectPath() const { return m_objectPath; }

private:
    std::string m_interfaceBusName;
    std::string m_objectPath;
};

}  // namespace ZelApiLite

#endif
