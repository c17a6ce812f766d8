// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The IPC server: a connection to the system bus, a thread that dispatches what comes over it, and the way
 * back to the bus when it was lost.
 *
 * Before start() nothing is dispatched: what arrives waits in the connection. From start() on the thread owns
 * the connection and everything below it; nobody else touches them, so they need no lock.
 */
#ifndef SERVICE_API_IPC_SERVER_H
#define SERVICE_API_IPC_SERVER_H

#include <sdbus-c++/sdbus-c++.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Connections.h"
#include "TICallListener.h"
#include "WakeUp.h"

/** Where the IPC method is found on the bus. */
struct IpcAddress {
    std::string busName;
    std::string objectPath;
    /** D-Bus interfaces that carry the method. */
    std::vector<std::string> interfaces;
};

class IpcServer {
public:
    explicit IpcServer(IpcAddress address);

    /** Stops dispatching and waits for a call that is being served. Not to be called on the thread that
     * dispatches. */
    ~IpcServer();

    IpcServer(const IpcServer&) = delete;
    IpcServer& operator=(const IpcServer&) = delete;

    /** Connects, begins to watch who leaves and takes the bus name. Throws, with everything dropped, when it
     * can't. */
    void connect();

    /** Whether the calling thread is the one that dispatches. */
    bool isDispatchingHere() const;

    /** Starts dispatching to @p listener. To be called once, after connect. */
    void start(std::unique_ptr<TICallListener> listener);

private:
    void run();
    bool reconnect();
    void processUntilStopped();
    void disconnect();
    void openConnection();
    void watchOwners();
    void addPresentConnections();
    void offerMethod();

    void onNameOwnerChanged(sdbus::Message& signal);
    void onCall(sdbus::MethodCall call);
    void answer(sdbus::MethodCall& call);
    TCMessageBuffer dispatch(sdbus::MethodCall& call, int method, TCMessageBuffer& request);

    const IpcAddress m_address;
    std::unique_ptr<TICallListener> m_listener;
    std::string m_interfaceName;
    Connections m_connections;

    // In this order: object and watch end before the connection that carries them.
    std::unique_ptr<sdbus::IConnection> m_connection;
    sdbus::Slot m_ownersWatch;
    std::unique_ptr<sdbus::IObject> m_object;

    WakeUp m_stop;
    std::thread m_thread;
};

#endif
