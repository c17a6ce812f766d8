// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The IPC server: a connection to the system bus, a thread that reads from and writes to it, a thread that
 * serves the calls, and the way back to the bus when it was lost.
 *
 * Before start() nothing is read: what arrives waits in the connection. From start() on the *bus thread* owns
 * the connection and everything of it. It never waits for anything but the bus: what it asks the bus is
 * answered later, as any other message. The *serving thread* takes calls from the queue, runs the listener
 * and the observers, and gives the outcome back to the bus thread.
 */
#ifndef SERVICE_API_IPC_SERVER_H
#define SERVICE_API_IPC_SERVER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Bus.h"
#include "CallQueue.h"
#include "Connections.h"
#include "TICallListener.h"
#include "UnreadReplies.h"
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

    /** Stops serving and waits for a call that is being served. Not to be called on the thread that serves.
     */
    ~IpcServer();

    IpcServer(const IpcServer&) = delete;
    IpcServer& operator=(const IpcServer&) = delete;

    /** Connects, begins to watch who leaves and takes the bus name. Throws, with everything dropped, when it
     * can't. */
    void connect();

    /** Whether the calling thread is the one that serves. */
    bool isServingHere() const;

    /** Starts serving with @p listener. To be called once, after connect. */
    void start(std::unique_ptr<TICallListener> listener);

private:
    using Clock = std::chrono::steady_clock;

    /** How a call ended: with a reply, or with an error when that has a name. */
    struct Outcome {
        Call call;
        TCMessageBuffer reply;
        const char* error = nullptr;
        std::string errorMessage;

        std::size_t size() const;
    };

    // The bus thread
    void run();
    bool reconnect();
    void processUntilStopped();
    void process();
    void waitForBus();
    void disconnect();
    void openConnection();
    void watchOwners();
    std::vector<std::string> listNames();
    void offerMethod();
    void reportFirst(std::vector<Departure> departures);
    void report(std::vector<Departure> departures);
    void forget(const std::string& name);
    void ask(const char* interface, const char* member, const char* name, std::uint64_t replies,
             sd_bus_message_handler_t onAnswer);
    void lookUp(const std::string& name);
    void identify(const std::string& name, sd_bus_message* credentials);
    void admit(const std::string& name);
    void doPeriodicWork(Clock::time_point now);
    void noticeStuckWrites(Clock::time_point now);

    static int onCall(sd_bus_message* message, void* server, sd_bus_error* error);
    static int onNameOwnerChanged(sd_bus_message* signal, void* server, sd_bus_error* error);
    static int onCredentials(sd_bus_message* answer, void* question, sd_bus_error* error);
    static int onNames(sd_bus_message* answer, void* question, sd_bus_error* error);
    static int onStatistics(sd_bus_message* answer, void* question, sd_bus_error* error);
    int accept(sd_bus_message* message, sd_bus_error* error);
    void refuse(const Call& call, const char* message);

    void sendOutcomes();
    void send(Outcome& outcome);
    static bus::Message replyTo(Outcome& outcome);

    // The serving thread
    void serve();
    void serveOne(Call call);
    void answer(Outcome& outcome);
    void give(Outcome outcome);
    void waitForRoom();

    const IpcAddress m_address;
    std::unique_ptr<TICallListener> m_listener;
    std::string m_interfaceName;

    // Of the bus thread
    std::vector<sd_bus_vtable> m_methods;
    Connections m_connections;
    bus::Connection m_connection;
    /** Those that left while no process of this name was on the bus, and when they are reported. */
    std::vector<Departure> m_leftBefore;
    Clock::time_point m_leftBeforeTime = Clock::time_point::max();
    Clock::time_point m_nextComparison;
    Clock::time_point m_nextLook;
    std::uint64_t m_writesQueued = 0;
    Clock::time_point m_writesMoved;

    // Of both
    CallQueue m_queue;
    UnreadReplies m_unread;
    WakeUp m_wake;
    std::atomic<bool> m_isStopped{false};
    std::mutex m_outcomesMutex;
    std::condition_variable m_outcomesSent;
    std::vector<Outcome> m_outcomes;
    /** Bytes of outcomes that the bus has not taken yet. */
    std::size_t m_unsent = 0;
    bool m_waitsForRoom = true;

    std::thread m_servingThread;
    std::thread m_busThread;
};

#endif
