// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Who calls this process over IPC, and who has gone.
 */
#ifndef TC_IPC_PROPERTIES_H
#define TC_IPC_PROPERTIES_H

#include <cstdint>
#include <memory>
#include <string>

/** Properties of the process behind a connection, looked up once per connection. */
struct TSCallerProperties {
    /** Base name of the caller's executable, else its command name, else empty. */
    std::string progName;
    /** Process id as the bus knows it, 0 when it could not be found out. */
    std::uint32_t pid = 0;
};

/** Is told of callers. All operations run on the thread of the library that dispatches calls, in the bus's
 * order. */
class TIIPCCallersObserver {
public:
    virtual ~TIIPCCallersObserver() = default;

    /** Runs before each call is dispatched, with the properties of its caller. */
    virtual void SetCurrentCaller(const TSCallerProperties& caller) = 0;

    /** Runs after each call. */
    virtual void ClearCurrentCaller() = 0;

    /**
     * Runs when a connection has left the bus that had called, or that was on the bus before this process
     * was; after the last of its own calls.
     *
     * @param connectionName  the unique name that the connection had
     * @param pid             its process id, 0 when none was ever looked up
     */
    virtual void OwnerRemoved(const std::string& connectionName, std::uint32_t pid) = 0;
};

/** The process-wide list of observers. */
class TCIpcProperties {
public:
    /** The one instance; never destroyed. */
    static TCIpcProperties& Instance();

    TCIpcProperties(const TCIpcProperties&) = delete;
    TCIpcProperties& operator=(const TCIpcProperties&) = delete;

    /**
     * Adds an observer, which must live until it is removed. Callable from any thread; one that is to hear of
     * the first call must be there before StartNativeAPI.
     */
    void AddCallersObserver(TIIPCCallersObserver& observer);

    /**
     * Removes an observer; nothing when it was never added. Once this has returned none of its hooks begins,
     * but one that runs on another thread may still run.
     */
    void RemoveCallersObserver(TIIPCCallersObserver& observer);

private:
    friend class CallersObservers;
    struct Impl;

    TCIpcProperties();
    ~TCIpcProperties();

    std::unique_ptr<Impl> m_impl;
};

#endif
