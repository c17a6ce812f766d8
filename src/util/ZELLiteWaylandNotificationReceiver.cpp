// SPDX-License-Identifier: Apache-2.0
#include "ZELLiteWaylandNotificationReceiver.h"

#include <unistd.h>
#include <wayland-extension/tizen-zel-notifier-client-protocol.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>

#include "AppIdCache.h"
#include "Diagnostics.h"
#include "SessionControl.h"
#include "ZelDaemonStateManager.h"

namespace {

constexpr const char* kWindowManagerReady = "/run/.wm_ready";
constexpr const char* kDebugSet = "/etc/debug";
constexpr const char* kNotifierInterface = "tizen_zel_notifier";
constexpr std::uint32_t kNotifierVersion = 1;
constexpr long long kNoTrace = -1;

constexpr gushort kErrorEvents = G_IO_ERR | G_IO_HUP | G_IO_NVAL;
constexpr guint kQuietPollErrors = 100;
constexpr long kPollBackOffNs = 10'000'000;

// The kinds of client events.
constexpr int kClientVisibilityChange = 1;
constexpr int kClientDelete = 2;
constexpr int kClientAuxHintChange = 3;

/** How many integers the payload of a client event has at least. */
struct TSPayload {
    int kind;
    std::size_t integers;
};
constexpr std::array<TSPayload, 3> kPayloads{
    {{kClientVisibilityChange, 3}, {kClientDelete, 2}, {kClientAuxHintChange, 3}}};

constexpr int kVisible = 0;
constexpr int kNotVisible = 2;
constexpr int kHintAdded = 1;
constexpr int kHintRemoved = 2;

/** A number of the protocol and its word in the log. */
struct TSWord {
    int number;
    const char* word;
};
constexpr std::array<TSWord, 3> kVisibilityWords{
    {{0, "Visible"}, {1, "Partially visible"}, {2, "Not visible"}}};
constexpr std::array<TSWord, 2> kHintWords{{{1, "Hint added"}, {2, "Hint removed"}}};

template <std::size_t N>
const char* WordOf(const std::array<TSWord, N>& words, int number) {
    for (const TSWord& row : words) {
        if (row.number == number) {
            return row.word;
        }
    }
    return "";
}

wl_display* g_pWaylandDisplay = nullptr;
wl_registry* g_pWaylandRegistry = nullptr;
tizen_zel_notifier* g_pNotifier = nullptr;
GSource* g_pWaylandSource = nullptr;

/** Every window session id begins so. */
const std::string sessionID = "##_WM_USE_HINTS_WIN__winID_";

constexpr wl_registry_listener RegistryListener = {
    CZELLiteWaylandNotificationReceiver::RegistryHandler,
    CZELLiteWaylandNotificationReceiver::RegistryRemover,
};

constexpr tizen_zel_notifier_listener ZELNotifierListener = {
    CZELLiteWaylandNotificationReceiver::ZELClientTopMostCallback,
    CZELLiteWaylandNotificationReceiver::ZELClientEventCallback,
    CZELLiteWaylandNotificationReceiver::ZELClientReadyVisibilityChange,
    CZELLiteWaylandNotificationReceiver::ZELClientAsyncVisibilityChange,
    CZELLiteWaylandNotificationReceiver::ZELClientsInfoCallback,
};

void DestroyNotifier() {
    if (g_pNotifier != nullptr) {
        wl_proxy_destroy(reinterpret_cast<wl_proxy*>(g_pNotifier));
        g_pNotifier = nullptr;
    }
}

void DestroyRegistry() {
    if (g_pWaylandRegistry != nullptr) {
        wl_proxy_destroy(reinterpret_cast<wl_proxy*>(g_pWaylandRegistry));
        g_pWaylandRegistry = nullptr;
    }
}

void DisconnectDisplay() {
    if (g_pWaylandDisplay != nullptr) {
        wl_display_disconnect(g_pWaylandDisplay);
        g_pWaylandDisplay = nullptr;
    }
}

// The display's socket as a source of the main loop.

/** GLib's source with what it needs; allocated by GLib. */
struct TSWaylandEventSource {
    GSource source;
    GPollFD pollFd;
    wl_display* display;
    guint pollErrors;
};

gboolean WaylandEventSourcePrepare(GSource* base, gint* timeout) {
    auto* source = reinterpret_cast<TSWaylandEventSource*>(base);
    *timeout = -1;
    if (source != nullptr) {
        wl_display_flush(source->display);
    }
    return FALSE;
}

// A dead socket is ready at every turn of the loop: the sleep keeps it from taking the processor, and the
// daemon serves on without windows.
void BackOff() {
    timespec left{0, kPollBackOffNs};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}

gboolean WaylandEventSourceCheck(GSource* base) {
    auto* source = reinterpret_cast<TSWaylandEventSource*>(base);
    if (source == nullptr) {
        return FALSE;
    }
    if ((source->pollFd.revents & kErrorEvents) == 0) {
        return source->pollFd.revents;
    }
    if (++source->pollErrors > kQuietPollErrors) {
        ZEL_LOG_ERROR("Poll failed! %#x", static_cast<unsigned int>(source->pollFd.revents));
        source->pollErrors = 0;
    }
    BackOff();
    source->pollFd.revents = 0;
    return FALSE;
}

gboolean WaylandEventSourceDispatch(GSource* base, GSourceFunc /*callback*/, gpointer /*userData*/) {
    auto* source = reinterpret_cast<TSWaylandEventSource*>(base);
    if (source != nullptr && source->pollFd.revents != 0) {
        wl_display_dispatch(source->display);
        source->pollFd.revents = 0;
    }
    return TRUE;
}

GSourceFuncs WaylandEventSourceFuncs = {WaylandEventSourcePrepare,
                                        WaylandEventSourceCheck,
                                        WaylandEventSourceDispatch,
                                        nullptr,
                                        nullptr,
                                        nullptr};

GSource* NewWaylandEventSource() {
    auto* source = reinterpret_cast<TSWaylandEventSource*>(
        g_source_new(&WaylandEventSourceFuncs, sizeof(TSWaylandEventSource)));
    ZEL_LOG_ERROR("called");
    if (source != nullptr) {
        source->display = g_pWaylandDisplay;
        source->pollFd.fd = wl_display_get_fd(g_pWaylandDisplay);
        source->pollFd.events = G_IO_IN | kErrorEvents;
        source->pollErrors = 0;
        g_source_add_poll(&source->source, &source->pollFd);
    }
    return reinterpret_cast<GSource*>(source);
}

// The window manager's word on its payload is held against the payload: what is too short for its integers is
// dropped.
std::optional<std::array<std::int32_t, 3>> ReadIntegers(const char* caller, const wl_array* payload,
                                                        std::size_t count) {
    std::array<std::int32_t, 3> integers{};
    const std::size_t size = count * sizeof integers.front();
    if (payload->size < size) {
        ZEL_LOG_FROM(caller, DLOG_ERROR, "Payload is too short, size(%zu)", payload->size);
        return std::nullopt;
    }
    std::memcpy(integers.data(), payload->data, size);
    return integers;
}

/** The window of a visibility change, and whose it is. */
struct TSWindow {
    int clientId;
    int appPid;
    std::string appName;
};

std::optional<TSWindow> ReadWindow(const char* caller, int visibility, const wl_array* payload) {
    const auto integers = ReadIntegers(caller, payload, 2);
    if (!integers) {
        return std::nullopt;
    }
    const auto [clientId, appPid, unused] = *integers;
    ZEL_LOG_FROM(caller, DLOG_ERROR, "Visibility:%d AppPid:%d clientID:%d aul_app_get_appid_bypid start",
                 visibility, appPid, clientId);
    return TSWindow{clientId, appPid, TCAppIdCache::Instance().GetAppIdByPid(appPid)};
}

bool IsDebugSet() {
    return access(kDebugSet, F_OK) == 0;
}

// The answer, and whatever else waits, is dispatched before this returns.
void RequestTopMostClient() {
    if (g_pWaylandDisplay == nullptr) {
        ZEL_LOG_ERROR("Display is nullptr");
        return;
    }
    tizen_zel_notifier_get_top_most_client(g_pNotifier);
    if (wl_display_roundtrip(g_pWaylandDisplay) < 0) {
        ZEL_LOG_ERROR("wl_display_roundtrip_queue failed");
    }
}

}  // namespace

bool CZELLiteWaylandNotificationReceiver::m_bIsLaunched = false;
std::map<int, std::pair<std::string, int>> CZELLiteWaylandNotificationReceiver::m_mapActiveClients;
std::map<std::string, long long> CZELLiteWaylandNotificationReceiver::m_mapDebugTraces;

CZELLiteWaylandNotificationReceiver::CZELLiteWaylandNotificationReceiver(
    TCZelDaemonStateManager& stateManager, TCSessionControl& sessionControl)
    : m_stateManager(stateManager), m_sessionControl(sessionControl) {}

CZELLiteWaylandNotificationReceiver::~CZELLiteWaylandNotificationReceiver() {
    m_stateManager.UnregisterListener(this);
    m_mapActiveClients.clear();
    if (m_bIsLaunched) {
        DestroyNotifier();
        DestroyRegistry();
        DisconnectDisplay();
        m_bIsLaunched = false;
        ZEL_LOG_ERROR("Stopped");
    }
}

void CZELLiteWaylandNotificationReceiver::Start(GMainLoop* /*loop*/) {
    if (m_bIsLaunched) {
        ZEL_LOG_ERROR("Already launched!");
        return;
    }
    m_stateManager.RegisterListener(this);
    ZEL_LOG_ERROR("Creating Wayland Notification Receiver");
    if (access(kWindowManagerReady, F_OK) != 0) {
        ZEL_LOG_ERROR("WM hasn't been created!");
        return;
    }
    m_bIsLaunched = true;
    g_pWaylandDisplay = wl_display_connect(nullptr);
    if (g_pWaylandDisplay == nullptr) {
        ZEL_LOG_ERROR("Error connecting display. Exiting");
        return;
    }
    g_pWaylandRegistry = wl_display_get_registry(g_pWaylandDisplay);
    if (g_pWaylandRegistry == nullptr) {
        DisconnectDisplay();
        ZEL_LOG_ERROR("Adding a listener is impossible. Exiting");
        return;
    }
    wl_registry_add_listener(g_pWaylandRegistry, &RegistryListener, this);
    // The first round trip brings the globals.
    if (wl_display_roundtrip(g_pWaylandDisplay) < 0) {
        ZEL_LOG_ERROR("Sync call failed. Exiting");
        // Disconnecting frees a notifier that was bound already, so it must not be destroyed later.
        g_pNotifier = nullptr;
        DestroyRegistry();
        DisconnectDisplay();
        return;
    }
    // The second lets the notifier's bind complete. Only its failure lets a later start try again.
    if (wl_display_roundtrip(g_pWaylandDisplay) < 0) {
        ZEL_LOG_ERROR("Sync call failed. Exiting");
        DestroyNotifier();
        DestroyRegistry();
        DisconnectDisplay();
        m_bIsLaunched = false;
        return;
    }
    g_pWaylandSource = NewWaylandEventSource();
    g_source_attach(g_pWaylandSource, g_main_context_default());
    ZEL_LOG_ERROR("Initialization OK");
}

void CZELLiteWaylandNotificationReceiver::OnStart() {
    ZEL_LOG_ERROR("zel-daemon has started!");
}

void CZELLiteWaylandNotificationReceiver::OnTerminate() {
    ZEL_LOG_INFO("Terminating zel-daemon...");
}

void CZELLiteWaylandNotificationReceiver::OnTerminateSuccess(const TSZelData& /*data*/) {
    ZEL_LOG_ERROR("zel-daemon succesfully terminated!");
}

void CZELLiteWaylandNotificationReceiver::RegistryHandler(void* data, wl_registry* registry,
                                                          std::uint32_t name, const char* interface,
                                                          std::uint32_t /*version*/) {
    if (std::strcmp(interface, kNotifierInterface) != 0) {
        return;
    }
    g_pNotifier = static_cast<tizen_zel_notifier*>(
        wl_registry_bind(registry, name, &tizen_zel_notifier_interface, kNotifierVersion));
    tizen_zel_notifier_add_listener(g_pNotifier, &ZELNotifierListener, data);
}

void CZELLiteWaylandNotificationReceiver::RegistryRemover(void* /*data*/, wl_registry* /*registry*/,
                                                          std::uint32_t name) {
    ZEL_LOG_INFO("Global interface removed: %d", static_cast<int>(name));
}

void CZELLiteWaylandNotificationReceiver::ZELClientTopMostCallback(void* /*data*/,
                                                                   tizen_zel_notifier* /*notifier*/,
                                                                   int clientId) {
    ZEL_LOG_ERROR("Top most clientID: %d", clientId);
}

void CZELLiteWaylandNotificationReceiver::ZELClientEventCallback(void* data, tizen_zel_notifier* /*notifier*/,
                                                                 int kind, wl_array* payload) {
    auto* receiver = static_cast<CZELLiteWaylandNotificationReceiver*>(data);
    if (receiver == nullptr) {
        ZEL_LOG_ERROR("pObj is nullptr!");
        return;
    }
    const auto* expected = std::find_if(kPayloads.begin(), kPayloads.end(),
                                        [kind](const TSPayload& row) { return row.kind == kind; });
    if (expected == kPayloads.end()) {
        return;
    }
    const auto integers = ReadIntegers(static_cast<const char*>(__func__), payload, expected->integers);
    if (!integers) {
        return;
    }
    const auto [winId, appPid, state] = *integers;
    const std::string sessionId = sessionID + std::to_string(winId);
    const bool isTerminated = receiver->m_stateManager.IsZelTerminated();
    switch (kind) {
        case kClientVisibilityChange:
            ZEL_LOG_ERROR(
                "Event CLIENT_VISIBILITY_CHANGE resID:%d Visibility[%d]:%s appPid:%d isTerminated:%d ", winId,
                state, WordOf(kVisibilityWords, state), appPid, isTerminated);
            receiver->m_OnVisibility(sessionId, winId, appPid, state);
            break;
        case kClientDelete:
            ZEL_LOG_ERROR("Event CLIENT_DELETE resID:%d appPid:%d", winId, appPid);
            receiver->CloseSession(sessionId, winId, appPid);
            break;
        case kClientAuxHintChange:
            ZEL_LOG_ERROR("Event CLIENT_AUX_HINT_CHANGE resID:%d hint[%d]:%s appPid:%d", winId, state,
                          WordOf(kHintWords, state), appPid);
            RequestTopMostClient();
            receiver->m_OnHint(sessionId, winId, appPid, state);
            break;
    }
}

// A window that is partly covered keeps what it has.
void CZELLiteWaylandNotificationReceiver::m_OnVisibility(const std::string& sessionId, int winId, int appPid,
                                                         int visibility) {
    if (visibility == kVisible) {
        m_Show(sessionId, winId, appPid);
    } else if (visibility == kNotVisible) {
        m_Hide(sessionId, winId, appPid);
    }
}

void CZELLiteWaylandNotificationReceiver::m_OnHint(const std::string& sessionId, int winId, int appPid,
                                                   int hint) {
    if (hint == kHintAdded) {
        m_Show(sessionId, winId, appPid);
    } else if (hint == kHintRemoved) {
        m_Hide(sessionId, winId, appPid);
    }
}

void CZELLiteWaylandNotificationReceiver::m_Show(const std::string& sessionId, int winId, int appPid) {
    if (AddToActiveClients(winId, appPid)) {
        OpenSession(sessionId, winId, appPid);
    }
}

// A window -1 is never hidden, only deleted: its trace reads as none.
void CZELLiteWaylandNotificationReceiver::m_Hide(const std::string& sessionId, int winId, int appPid) {
    if (GetTraceId(sessionId) != kNoTrace) {
        CloseSession(sessionId, winId, appPid);
    }
}

void CZELLiteWaylandNotificationReceiver::ZELClientReadyVisibilityChange(void* /*data*/,
                                                                         tizen_zel_notifier* /*notifier*/,
                                                                         int visibility, wl_array* payload) {
    const auto window = ReadWindow(static_cast<const char*>(__func__), visibility, payload);
    if (!window) {
        return;
    }
    ZEL_LOG_ERROR("Client ready visibility change. Visibility:%d AppName:%s AppPid:%d clientID:%d ",
                  visibility, window->appName.c_str(), window->appPid, window->clientId);
}

void CZELLiteWaylandNotificationReceiver::ZELClientAsyncVisibilityChange(void* /*data*/,
                                                                         tizen_zel_notifier* /*notifier*/,
                                                                         int visibility, wl_array* payload) {
    const auto window = ReadWindow(static_cast<const char*>(__func__), visibility, payload);
    if (!window) {
        return;
    }
    ZEL_LOG_ERROR("Client async visibility change. Visibility:%d AppName:%s AppPid:%d clientID:%d",
                  visibility, window->appName.c_str(), window->appPid, window->clientId);
}

void CZELLiteWaylandNotificationReceiver::ZELClientsInfoCallback(void* /*data*/,
                                                                 tizen_zel_notifier* /*notifier*/,
                                                                 wl_array* /*payload*/) {
    ZEL_LOG_ERROR("called");
}

bool CZELLiteWaylandNotificationReceiver::AddToActiveClients(int winId, int appPid) {
    if (m_mapActiveClients.count(winId) != 0) {
        ZEL_LOG_ERROR("Client already winId:%d app_pid:%d", winId, appPid);
        return false;
    }
    ZEL_LOG_ERROR("Adding client winId:%d app_pid:%d", winId, appPid);
    m_mapActiveClients.emplace(winId, std::make_pair("proc", appPid));
    return true;
}

bool CZELLiteWaylandNotificationReceiver::RemoveFromActiveClients(int winId, int appPid) {
    ZEL_LOG_ERROR("Removing client winId:%d app_pid:%d", winId, appPid);
    if (m_mapActiveClients.erase(winId) == 0) {
        ZEL_LOG_ERROR("No such client winId:%d app_pid:%d", winId, appPid);
        return false;
    }
    return true;
}

void CZELLiteWaylandNotificationReceiver::OpenSession(const std::string& sessionId, int winId, int appPid) {
    ZEL_LOG_ERROR("Open session");
    m_sessionControl.Open(sessionId, "", "");
    m_AddTraceId(sessionId, winId);
    if (!IsDebugSet()) {
        return;
    }
    ZEL_LOG_ERROR("Open debug session");
    std::string appName = TCAppIdCache::Instance().GetAppIdByPid(appPid);
    if (appName.empty()) {
        ZEL_LOG_ERROR("Failed to get AppName for PID: %d", appPid);
        appName = sessionId;
    } else {
        ZEL_LOG_ERROR("Pid:%d AppName:%s", appPid, appName.c_str());
    }
    m_sessionControl.OpenDebugTrace(sessionId, winId, sessionId, appName, appName, std::to_string(appPid),
                                    ESessionControl_ProgLang_Cpp);
}

void CZELLiteWaylandNotificationReceiver::CloseSession(const std::string& sessionId, int winId, int appPid) {
    ZEL_LOG_ERROR("Close session");
    m_sessionControl.Close(sessionId);
    RemoveFromActiveClients(winId, appPid);
    m_RemoveTraceId(sessionId);
    if (IsDebugSet()) {
        ZEL_LOG_ERROR("Close debug session");
        m_sessionControl.CloseDebugTrace(sessionId, winId);
    }
}

long long CZELLiteWaylandNotificationReceiver::GetTraceId(const std::string& sessionId) {
    const auto trace = m_mapDebugTraces.find(sessionId);
    return trace == m_mapDebugTraces.end() ? kNoTrace : trace->second;
}

bool CZELLiteWaylandNotificationReceiver::m_AddTraceId(const std::string& sessionId, long long traceId) {
    if (!m_mapDebugTraces.emplace(sessionId, traceId).second) {
        ZEL_LOG_ERROR("Item already in the map! sessionId:%s, traceID:%lld", sessionId.c_str(), traceId);
        return false;
    }
    return true;
}

void CZELLiteWaylandNotificationReceiver::m_RemoveTraceId(const std::string& sessionId) {
    ZEL_LOG_ERROR("Number of removed items: %zu", m_mapDebugTraces.erase(sessionId));
}
