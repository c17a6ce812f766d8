// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A window manager in the test's own process: a real Wayland server on a thread of its own that speaks the
 * notifier.
 */
#ifndef TESTS_SUPPORT_COMPOSITOR_H
#define TESTS_SUPPORT_COMPOSITOR_H

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

/** Runs from construction to destruction, on the socket that WAYLAND_DISPLAY names; the test's display is
 * this one. */
class Compositor {
public:
    /** What it does with whom. */
    struct Manners {
        /** Version of the notifier that is advertised; 0 for none. */
        int notifierVersion = 1;
        /** Whether a client is thrown out before it has seen any global. */
        bool throwsOutAtConnection = false;
        /** Whether a client is thrown out when it binds the notifier. */
        bool throwsOutAtBind = false;
    };

    Compositor();
    explicit Compositor(const Manners& manners);
    ~Compositor();
    Compositor(const Compositor&) = delete;
    Compositor& operator=(const Compositor&) = delete;

    /** Points the display at a socket where nobody listens. */
    static void nowhere();

    /** Sends events to who has bound the notifier. Integers are the payload. */
    void sendClientEvent(int kind, const std::vector<std::int32_t>& payload);
    void sendReadyVisibility(int visibility, const std::vector<std::int32_t>& payload);
    void sendAsyncVisibility(int visibility, const std::vector<std::int32_t>& payload);
    void sendClientsInfo(const std::vector<std::int32_t>& payload);
    void sendTopMost(int clientId);

    /** Removes the notifier from the globals. */
    void withdrawNotifier();

    /** Runs before a request for the window on top is answered, on the server's thread; what it sends comes
     * first. */
    void onTopMostRequest(std::function<void(Compositor&)> hook);

    /** The version that was bound, 0 when nobody did. */
    int boundVersion() const;
    /** How many requests for the window on top have come. */
    int topMostRequests() const;

private:
    struct Server;
    std::unique_ptr<Server> m_server;
};

#endif
