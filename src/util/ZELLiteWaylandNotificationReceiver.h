// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Windows on screen hold sessions.
 *
 * The window manager tells through its notifier extension which windows become visible, change their hints or
 * go. A window that becomes visible opens a session under its own id, which starts the service and keeps it;
 * one that is hidden or deleted closes it. On a debug set such a session has a trace, labelled with the
 * application's id.
 *
 * Everything here runs on the main thread: the connection is read by a source of the GLib default main
 * context.
 */
#ifndef ZEL_LITE_WAYLAND_NOTIFICATION_RECEIVER_H
#define ZEL_LITE_WAYLAND_NOTIFICATION_RECEIVER_H

#include <glib.h>
#include <wayland-client.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "IZelDaemonStateListener.h"

class TCSessionControl;
class TCZelDaemonStateManager;
struct tizen_zel_notifier;

class CZELLiteWaylandNotificationReceiver : public IZelDaemonStateListener {
public:
    /** Keeps both references; connects to nothing yet. */
    CZELLiteWaylandNotificationReceiver(TCZelDaemonStateManager& stateManager,
                                        TCSessionControl& sessionControl);
    /** Unregisters and disconnects. The event source stays attached: the loop does not run any more. */
    ~CZELLiteWaylandNotificationReceiver() override;
    CZELLiteWaylandNotificationReceiver(const CZELLiteWaylandNotificationReceiver&) = delete;
    CZELLiteWaylandNotificationReceiver& operator=(const CZELLiteWaylandNotificationReceiver&) = delete;

    /**
     * Registers with the state manager, connects to the window manager and attaches the event source to the
     * default main context. A window manager that is not there yet may be tried again; one that refused may
     * not.
     *
     * @param loop  not used
     */
    void Start(GMainLoop* loop);

    void OnStart() override;
    void OnTerminate() override;
    void OnTerminateSuccess(const TSZelData& data) override;

    /** Notes that a window holds a session. @return false when it is noted already */
    bool AddToActiveClients(int winId, int appPid);
    /** Forgets that a window holds a session. @return whether it was noted */
    bool RemoveFromActiveClients(int winId, int appPid);
    /** Opens a window's session and, on a debug set, its trace. */
    void OpenSession(const std::string& sessionId, int winId, int appPid);
    /** Closes a window's session and, on a debug set, its trace. */
    void CloseSession(const std::string& sessionId, int winId, int appPid);
    /** The trace noted for a session, -1 when there is none. */
    long long GetTraceId(const std::string& sessionId);

    // What libwayland and GLib call.
    static void RegistryHandler(void* data, wl_registry* registry, std::uint32_t name, const char* interface,
                                std::uint32_t version);
    static void RegistryRemover(void* data, wl_registry* registry, std::uint32_t name);
    static void ZELClientTopMostCallback(void* data, tizen_zel_notifier* notifier, int clientId);
    static void ZELClientEventCallback(void* data, tizen_zel_notifier* notifier, int kind, wl_array* payload);
    static void ZELClientReadyVisibilityChange(void* data, tizen_zel_notifier* notifier, int visibility,
                                               wl_array* payload);
    static void ZELClientAsyncVisibilityChange(void* data, tizen_zel_notifier* notifier, int visibility,
                                               wl_array* payload);
    static void ZELClientsInfoCallback(void* data, tizen_zel_notifier* notifier, wl_array* payload);

private:
    void m_OnVisibility(const std::string& sessionId, int winId, int appPid, int visibility);
    void m_OnHint(const std::string& sessionId, int winId, int appPid, int hint);
    void m_Show(const std::string& sessionId, int winId, int appPid);
    void m_Hide(const std::string& sessionId, int winId, int appPid);
    bool m_AddTraceId(const std::string& sessionId, long long traceId);
    void m_RemoveTraceId(const std::string& sessionId);

    TCZelDaemonStateManager& m_stateManager;
    TCSessionControl& m_sessionControl;

    /** Whether a start has got past the window manager's readiness. */
    static bool m_bIsLaunched;
    /** Windows that hold a session, with "proc" and their process. */
    static std::map<int, std::pair<std::string, int>> m_mapActiveClients;
    /** Traces by session. A trace has the number of its window, so a window -1 reads as having none. */
    static std::map<std::string, long long> m_mapDebugTraces;
};

#endif
