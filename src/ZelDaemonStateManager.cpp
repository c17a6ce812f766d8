// SPDX-License-Identifier: Apache-2.0
#include "ZelDaemonStateManager.h"

#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>

#include "Diagnostics.h"
#include "GuardedFile.h"
#include "ZelApiLite.h"

namespace {

constexpr const char* kSubsequentStartMarker = "/tmp/zel_lite_subsequent_start";
constexpr const char* kRunningMarker = "/tmp/zel_lite_zel_daemon_is_running";
constexpr const char* kRestartMarker = "/tmp/zel_restart";
constexpr const char* kLauncher = "/usr/apps/zel-lite-app/bin/zel-lite-app-launch";

// What the service answers when it did what it was asked to; a negative answer means that it was not reached.
constexpr int kSuccess = 1;
constexpr int kNoControl = -1;

// Spelled so on the set; the unit's name is not ours to mend.
constexpr const char* kServiceUnit = "zel_deamon.service";

// The name of the daemon's own connection to the bus; IPC has another. It is there for its consequence: the
// policy of the bus lets only root send to the connection that owns it or waits for it. Without it, signals
// of any user pile up on the connection, which the daemon reads only when it starts the service.
constexpr const char* kConnectionName = "com.brenlow.ZELLite.StateManager";
// A former instance of the daemon may not have left the bus yet: the new one waits for the name.
constexpr dbus_uint32_t kWaitInLine = 0;
constexpr std::chrono::seconds kNameLimit{25};
constexpr int kNamePoll = 1'000;

// libdbus reads 2 KiB at once, and a bus keeps 128 MiB for a connection at most.
constexpr int kMostReads = 65'536;

constexpr int kPreviousDaemonProbes = 200;
constexpr useconds_t kPreviousDaemonProbeInterval = 100'000;

// The line numbers that these three assertions report. Readers of the assertions know them, so they are a
// contract and do not follow the source.
constexpr int kRestartMarkerStaysLine = 158;
constexpr int kLinkAfterTriggerLine = 167;
constexpr int kLinkAfterRefusalLine = 234;

/** A state, its word in the log, and what a trigger leads to in it. */
struct TSStateRow {
    EZelState state;
    const char* text;
    bool startZEL;
    /** Whether START_ZEL_MAIN is forwarded too: a service that runs does not need it. */
    bool forwardsStart;
    bool informListeners;
};

constexpr std::array<TSStateRow, STATE_UNDEFINED_AFTER_TERMINATE + 1> kStates{{
    {STATE_UNDEFINED, "undefined", true, true, true},
    {STATE_RUNNING, "running", false, false, false},
    {STATE_RUNNING_UNINITIALIZED, "running uninitialized", false, false, true},
    {STATE_TERMINATED, "terminated", true, true, true},
    {STATE_UNDEFINED_AFTER_TERMINATE, "undefined after terminate", true, true, true},
}};

constexpr bool HasARowForEachState() {
    for (std::size_t i = 0; i < kStates.size(); ++i) {
        if (static_cast<std::size_t>(kStates[i].state) != i || kStates[i].text == nullptr) {
            return false;
        }
    }
    return true;
}
static_assert(HasARowForEachState());

IZelControl* ObtainControl(const char* caller) {
    IZelControl* control = nullptr;
    ZelServiceAPI::CreateZelControl(&control);
    if (control == nullptr) {
        ZEL_LOG_FROM(caller, DLOG_ERROR, "pZelControl == nullptr");
    }
    return control;
}

// A restart marker that stays is only a wrong hint for the service's next start, so the daemon goes on.
void RemoveRestartFile() {
    if (std::remove(kRestartMarker) != 0 && errno != ENOENT) {
        ReportAssertion("(*__errno_location ()) == 2", __FILE__, "Notify", kRestartMarkerStaysLine);
    }
}

}  // namespace

TCZelDaemonStateManager::TCZelDaemonStateManager() : m_launchLiteApp(ZelApiLite::LiteUtility::IsDebug()) {
    // A marker that another user has made is ignored: it would make the daemon believe that the service runs.
    if (!IsOwnFile(kSubsequentStartMarker)) {
        ZEL_LOG_ERROR("First boot up");
        m_zelState = STATE_RUNNING_UNINITIALIZED;
        CreateOwnFile(kSubsequentStartMarker);
    } else if (IsOwnFile(kRunningMarker)) {
        ZEL_LOG_ERROR("ZEL was running before");
        m_zelState = STATE_RUNNING_UNINITIALIZED;
    }
    m_InitDbusConnection();
}

TCZelDaemonStateManager::~TCZelDaemonStateManager() = default;

bool TCZelDaemonStateManager::Notify(ETriggerType trigger, const TSNotifyData& data) {
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    const TSStateRow& reaction = kStates.at(m_zelState);
    const bool sendNotifyCall = reaction.forwardsStart || trigger != TRIGGER_TYPE_START_ZEL_MAIN;
    ZEL_LOG_INFO(
        "ZEL Daemon Notify, startZEL(%d), sendNotifyCall(%d), informListeners(%d), m_zelState(%d), "
        "trigger(%d)",
        reaction.startZEL, sendNotifyCall, reaction.informListeners, m_zelState, trigger);
    if (reaction.startZEL && !m_StartForNotify()) {
        return false;
    }
    const int result = sendNotifyCall ? m_ForwardTrigger(trigger, data) : kSuccess;
    if (result < 0) {
        return false;
    }
    if (reaction.informListeners) {
        m_CallListeners(&IZelDaemonStateListener::OnStart);
    }
    if (result == kSuccess && reaction.startZEL) {
        RemoveRestartFile();
    }
    m_zelState = STATE_RUNNING;
    // The assertion below is the one report of a link here, so the look itself is silent; nothing reports a
    // link at the restart marker, so m_CheckFileIsLink logs it.
    if (IsSymbolicLink(kRunningMarker)) {
        ReportAssertion("0", __FILE__, "Notify", kLinkAfterTriggerLine);
        TakeAwayPlanted(kRunningMarker);
        return false;
    }
    CreateOwnFile(kRunningMarker);
    return result == kSuccess;
}

bool TCZelDaemonStateManager::RequestTerminate(std::vector<ETerminateErrorType>& errors, TSZelData& data) {
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (m_zelState == STATE_TERMINATED) {
        ZEL_LOG_INFO("zel-daemon already terminated");
        return true;
    }
    IZelControl* control = ObtainControl("RequestTerminate");
    if (control == nullptr) {
        return false;
    }
    m_CallListeners(&IZelDaemonStateListener::OnTerminate);
    if (const int removeRet = std::remove(kRunningMarker); removeRet != 0) {
        ZEL_LOG_ERROR("Removing failed, removeRet(%d), file(%s)", removeRet, kRunningMarker);
    }
    BootMarker("TCZelDaemonStateManager::RequestTerminate()");
    const int result = control->Terminate(errors, data);
    BootMarker("TCZelDaemonStateManager::RequestTerminate() completed, result [%d]", result);
    ZelServiceAPI::DestroyZelControl();
    if (result < 0) {
        m_RecoverFromFailedTerminate(result);
        return false;
    }
    if (result == kSuccess) {
        m_FinishTerminate(data);
        return true;
    }
    m_ContinueAfterRefusal(result, errors);
    return false;
}

bool TCZelDaemonStateManager::IsZelTerminated() {
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return m_zelState == STATE_TERMINATED;
}

void TCZelDaemonStateManager::RegisterListener(IZelDaemonStateListener* listener) {
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (std::find(m_listeners.begin(), m_listeners.end(), listener) != m_listeners.end()) {
        ZEL_LOG_ERROR("Listener already registred");
        return;
    }
    m_listeners.push_back(listener);
}

void TCZelDaemonStateManager::UnregisterListener(IZelDaemonStateListener* listener) {
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    const auto found = std::find(m_listeners.begin(), m_listeners.end(), listener);
    if (found == m_listeners.end()) {
        ZEL_LOG_ERROR("Listener not registred");
        return;
    }
    m_listeners.erase(found);
}

bool TCZelDaemonStateManager::LaunchZelLiteApp(bool refresh) {
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    ZEL_LOG_DEBUG("Launching zel-lite-app-launch refresh(%d)", refresh);
    // Launchers are reaped by the kernel: nobody waits for them.
    signal(SIGCHLD, SIG_IGN);
    // The child shares this process's memory, which makes it cheap however much the daemon holds; it may only
    // log, replace itself, or end without a trace.
    const pid_t child = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (child == 0) {
        ZEL_LOG_DEBUG("Launched zel-lite-app-launch");  // NOLINT(clang-analyzer-unix.Vfork)
        // An empty argument stands for "no refresh": the launcher always gets one.
        execl(kLauncher, kLauncher, refresh ? "-r" : "", static_cast<char*>(nullptr));
        _exit(127);
    }
    if (child < 0) {
        ZEL_LOG_ERROR("Launch zel-app-lite failed");
        return false;
    }
    return true;
}

std::string TCZelDaemonStateManager::m_ToString(EZelState state) {
    const auto index = static_cast<std::size_t>(state);
    return (index < kStates.size() ? kStates.at(index) : kStates.front()).text;
}

namespace {

/** A libdbus error record that frees itself. */
class TCDbusError {
public:
    TCDbusError() { dbus_error_init(&m_error); }
    ~TCDbusError() { dbus_error_free(&m_error); }
    TCDbusError(const TCDbusError&) = delete;
    TCDbusError& operator=(const TCDbusError&) = delete;

    DBusError* Get() { return &m_error; }
    bool IsSet() const { return dbus_error_is_set(&m_error) != 0; }
    const char* Message() const { return m_error.message; }

private:
    DBusError m_error{};
};

struct TSMessageRelease {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using TCDbusMessage = std::unique_ptr<DBusMessage, TSMessageRelease>;

struct TSPendingCallRelease {
    void operator()(DBusPendingCall* call) const { dbus_pending_call_unref(call); }
};
using TCDbusPendingCall = std::unique_ptr<DBusPendingCall, TSPendingCallRelease>;

// Asks the bus for the name, and drops everything else that arrives until it has answered. libdbus's own
// request would keep all that for later, and stops reading at 1,024 descriptors: strangers, who can send
// until the name is given, could hold it up for the 25 seconds that an answer may take.
TCDbusMessage RequestName(DBusConnection* connection) {
    const TCDbusMessage request(
        dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "RequestName"));
    DBusPendingCall* sent = nullptr;
    if (!request ||
        dbus_message_append_args(request.get(), DBUS_TYPE_STRING, &kConnectionName, DBUS_TYPE_UINT32,
                                 &kWaitInLine, DBUS_TYPE_INVALID) == 0 ||
        dbus_connection_send_with_reply(connection, request.get(), &sent, DBUS_TIMEOUT_USE_DEFAULT) == 0) {
        return nullptr;
    }
    const TCDbusPendingCall call(sent);
    const auto end = std::chrono::steady_clock::now() + kNameLimit;
    while (call && dbus_pending_call_get_completed(call.get()) == 0 &&
           std::chrono::steady_clock::now() < end &&
           dbus_connection_read_write_dispatch(connection, kNamePoll) != 0) {
    }
    if (!call || dbus_pending_call_get_completed(call.get()) == 0) {
        return nullptr;
    }
    return TCDbusMessage(dbus_pending_call_steal_reply(call.get()));
}

// Without the name everything works, so a failure is logged and nothing more.
void TakeConnectionName(DBusConnection* connection) {
    const TCDbusMessage reply = RequestName(connection);
    TCDbusError error;
    if (!reply) {
        ZEL_LOG_FROM("m_InitDbusConnection", DLOG_ERROR, "Dbus Name Error errMsg(%s)", "no answer");
    } else if (dbus_set_error_from_message(error.Get(), reply.get()) != 0) {
        ZEL_LOG_FROM("m_InitDbusConnection", DLOG_ERROR, "Dbus Name Error errMsg(%s)", error.Message());
    }
}

// Whether a read would find something: bytes, or the end of the connection.
bool IsReadable(DBusConnection* connection) {
    pollfd polled{-1, POLLIN, 0};
    return dbus_connection_get_unix_fd(connection, &polled.fd) != 0 && poll(&polled, 1, 0) > 0;
}

}  // namespace

bool TCZelDaemonStateManager::m_InitDbusConnection() {
    TCDbusError error;
    std::unique_ptr<DBusConnection, TSConnectionRelease> connection(
        dbus_bus_get(DBUS_BUS_SYSTEM, error.Get()));
    if (error.IsSet()) {
        ZEL_LOG_ERROR("Dbus Connection Error errMsg(%s)", error.Message());
        return false;
    }
    if (!connection) {
        ZEL_LOG_ERROR("Dbus Connection nullptr");
        return false;
    }
    // libdbus would end the process with the bus.
    dbus_connection_set_exit_on_disconnect(connection.get(), 0);
    const dbus_bool_t registered = dbus_bus_register(connection.get(), error.Get());
    if (error.IsSet()) {
        ZEL_LOG_ERROR("Dbus Register Error errMsg(%s)", error.Message());
        return false;
    }
    if (registered == 0) {
        ZEL_LOG_ERROR("Dbus Register Error ret(%d)", static_cast<int>(registered));
        return false;
    }
    TakeConnectionName(connection.get());
    m_connection = std::move(connection);
    // Drops what came before the name.
    m_DrainDbusConnection();
    return true;
}

// The daemon reads this connection here only: before each start, and when it has its name. What came
// meanwhile is dropped, such as a signal of one of root's programs, or the news that the bus has gone. That
// news comes last, so everything before it is read. A connection that has lost its bus counts as none.
bool TCZelDaemonStateManager::m_DrainDbusConnection() {
    if (!m_connection) {
        return false;
    }
    int reads = 0;
    do {
        dbus_connection_read_write(m_connection.get(), 0);
        while (dbus_connection_dispatch(m_connection.get()) == DBUS_DISPATCH_DATA_REMAINS) {
        }
    } while (++reads < kMostReads && IsReadable(m_connection.get()));
    return dbus_connection_get_is_connected(m_connection.get()) != 0;
}

namespace {

// The steps of a start log in the start's name.
constexpr const char* kStart = "m_StartZelDaemonService";

TCDbusMessage MakeStartUnit() {
    TCDbusMessage message(dbus_message_new_method_call("org.freedesktop.systemd1",
                                                       "/org/freedesktop/systemd1",
                                                       "org.freedesktop.systemd1.Manager", "StartUnit"));
    if (!message) {
        ZEL_LOG_FROM(kStart, DLOG_ERROR, "Message nullptr");
        return nullptr;
    }
    const char* mode = "replace";
    DBusMessageIter arguments;
    dbus_message_iter_init_append(message.get(), &arguments);
    const dbus_bool_t retA = dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &kServiceUnit);
    const dbus_bool_t retB = dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &mode);
    if (retA == 0 || retB == 0) {
        ZEL_LOG_FROM(kStart, DLOG_ERROR, "Failed to append data, retA(%d), retB(%d)", static_cast<int>(retA),
                     static_cast<int>(retB));
        return nullptr;
    }
    return message;
}

// A call that is not answered in libdbus's default time ends in an error message, which is a reply like any
// other.
TCDbusMessage CallAndWait(DBusConnection* connection, DBusMessage* message) {
    DBusPendingCall* sent = nullptr;
    if (dbus_connection_send_with_reply(connection, message, &sent, DBUS_TIMEOUT_USE_DEFAULT) == 0) {
        ZEL_LOG_FROM(kStart, DLOG_ERROR, "Failed to send message");
        return nullptr;
    }
    const TCDbusPendingCall call(sent);
    if (!call) {
        ZEL_LOG_FROM(kStart, DLOG_ERROR, "Pending Call nullptr");
        return nullptr;
    }
    ZEL_LOG_FROM(kStart, DLOG_INFO, "Dbus message send");
    dbus_pending_call_block(call.get());
    TCDbusMessage reply(dbus_pending_call_steal_reply(call.get()));
    if (!reply) {
        ZEL_LOG_FROM(kStart, DLOG_ERROR, "Reply nullptr");
    }
    return reply;
}

const char* ReadText(DBusMessageIter& argument) {
    const char* text = nullptr;
    dbus_message_iter_get_basic(&argument, static_cast<void*>(&text));
    return text;
}

// systemd answers with the path of the start job; an error's first argument is its text.
bool IsStartJob(DBusMessage* reply) {
    DBusMessageIter argument;
    if (dbus_message_iter_init(reply, &argument) == 0) {
        ZEL_LOG_FROM(kStart, DLOG_ERROR, "Message has no arguments");
        return false;
    }
    const int type = dbus_message_iter_get_arg_type(&argument);
    switch (type) {
        case DBUS_TYPE_STRING:
            ZEL_LOG_FROM(kStart, DLOG_ERROR, "Argument is string not object path, errMsg(%s)",
                         ReadText(argument));
            return false;
        case DBUS_TYPE_OBJECT_PATH:
            ZEL_LOG_FROM(kStart, DLOG_ERROR, "Message send success, replay objectPath(%s)",
                         ReadText(argument));
            return true;
        default:
            ZEL_LOG_FROM(kStart, DLOG_ERROR, "Expected argument as object path, argumentType(%d)", type);
            return false;
    }
}

}  // namespace

bool TCZelDaemonStateManager::m_StartZelDaemonService() {
    ZEL_LOG_INFO("m_previousZELDaemonPID(%d)", m_previousZELDaemonPID);
    m_WaitForPreviousZelDaemon();
    if (!m_DrainDbusConnection() && !m_InitDbusConnection()) {
        ZEL_LOG_ERROR("Can't initialize dbus connection");
        return false;
    }
    const TCDbusMessage message = MakeStartUnit();
    if (!message) {
        return false;
    }
    const TCDbusMessage reply = CallAndWait(m_connection.get(), message.get());
    return reply && IsStartJob(reply.get());
}

// systemd may still count the old process as the running service, and would then start nothing. Any error of
// the probe ends the wait, and a process that outlives all probes is not waited for again.
void TCZelDaemonStateManager::m_WaitForPreviousZelDaemon() {
    if (m_previousZELDaemonPID != -1) {
        for (int probe = 0; probe < kPreviousDaemonProbes && kill(m_previousZELDaemonPID, 0) == 0; ++probe) {
            ZEL_LOG_FROM(kStart, DLOG_ERROR, "zel-daemon is alive, pid(%d)", m_previousZELDaemonPID);
            usleep(kPreviousDaemonProbeInterval);
        }
    }
    m_previousZELDaemonPID = -1;
}

bool TCZelDaemonStateManager::m_StartForNotify() {
    ZEL_LOG_FROM("Notify", DLOG_ERROR, "Starting ZEL");
    BootMarker("TCZelDaemonStateManager::Notify: executing m_StartZelDaemonService()");
    const bool started = m_StartZelDaemonService();
    BootMarker("TCZelDaemonStateManager::Notify: m_StartZelDaemonService() completed, result [%d]", started);
    if (!started) {
        ZEL_LOG_FROM("Notify", DLOG_ERROR, "Starting ZEL Failed");
        return false;
    }
    if (m_launchLiteApp) {
        ZEL_LOG_FROM("Notify", DLOG_INFO, "LaunchZelLiteApp");
        LaunchZelLiteApp(true);
    }
    return true;
}

// The control is given up only when it failed: a working one serves the next trigger too.
int TCZelDaemonStateManager::m_ForwardTrigger(ETriggerType trigger, const TSNotifyData& data) {
    IZelControl* control = ObtainControl("Notify");
    if (control == nullptr) {
        return kNoControl;
    }
    BootMarker("TCZelDaemonStateManager::Notify(trigger [%d])", trigger);
    const int result = control->Notify(trigger, data);
    BootMarker("TCZelDaemonStateManager::Notify(trigger [%d]) completed, result [%d].", trigger, result);
    if (result < 0) {
        ZelServiceAPI::DestroyZelControl();
        ZEL_LOG_FROM("Notify", DLOG_ERROR, "Failed to notify ZEL, m_zelState(%s), retNotify(%d)",
                     m_ToString(m_zelState).c_str(), result);
    }
    return result;
}

// Nobody knows whether the service still runs, so it is started at once; the request has failed all the same.
void TCZelDaemonStateManager::m_RecoverFromFailedTerminate(int result) {
    ZEL_LOG_FROM("RequestTerminate", DLOG_ERROR, "Communication failed, m_zelState(%s), ret(%d)",
                 m_ToString(m_zelState).c_str(), result);
    m_zelState = STATE_UNDEFINED_AFTER_TERMINATE;
    Notify(TRIGGER_TYPE_START_ZEL_MAIN, TSNotifyData());
}

void TCZelDaemonStateManager::m_FinishTerminate(const TSZelData& data) {
    ZEL_LOG_FROM("RequestTerminate", DLOG_ERROR, "Succeeded to terminate ZEL");
    m_previousZELDaemonPID = data.pid;
    m_CreateRestartFile();
    m_CallListeners([&data](IZelDaemonStateListener& listener) { listener.OnTerminateSuccess(data); });
    m_zelState = STATE_TERMINATED;
}

void TCZelDaemonStateManager::m_ContinueAfterRefusal(int result,
                                                     const std::vector<ETerminateErrorType>& errors) {
    ZEL_LOG_FROM("RequestTerminate", DLOG_ERROR,
                 "Failed to terminate ZEL, m_zelState(%s), ret(%d), error size %zu",
                 m_ToString(m_zelState).c_str(), result, errors.size());
    for (const ETerminateErrorType error : errors) {
        ZEL_LOG_FROM("RequestTerminate", DLOG_ERROR, "error: %d", error);
    }
    m_CallListeners(&IZelDaemonStateListener::OnStart);
    if (IsSymbolicLink(kRunningMarker)) {
        ReportAssertion("0", __FILE__, "RequestTerminate", kLinkAfterRefusalLine);
        TakeAwayPlanted(kRunningMarker);
        return;
    }
    CreateOwnFile(kRunningMarker);
    m_zelState = STATE_RUNNING;
}

// A listener may register or unregister one, itself included, while it is called.
void TCZelDaemonStateManager::m_CallListeners(const std::function<void(IZelDaemonStateListener&)>& hook) {
    const std::vector<IZelDaemonStateListener*> listeners = m_listeners;
    for (IZelDaemonStateListener* listener : listeners) {
        if (std::find(m_listeners.begin(), m_listeners.end(), listener) != m_listeners.end()) {
            hook(*listener);
        }
    }
}

bool TCZelDaemonStateManager::m_CheckFileIsLink(const char* path) {
    struct stat status {};
    if (lstat(path, &status) != 0) {
        if (errno != ENOENT) {
            ZEL_LOG_ERROR("Cannot read file %s stats!", path);
        }
        return false;
    }
    if (S_ISLNK(status.st_mode)) {
        ZEL_LOG_ERROR("File %s is symlink!", path);
        return true;
    }
    return false;
}

void TCZelDaemonStateManager::m_CreateRestartFile() {
    ZEL_LOG_ERROR("Create ZEL_RESTART_MODE file!");
    if (m_CheckFileIsLink(kRestartMarker)) {
        ZEL_LOG_ERROR("File %s is symlink! Do nothing!", kRestartMarker);
        return;
    }
    if (!CreateOwnFile(kRestartMarker)) {
        // The one assertion without its printed line.
        _TCApiAssert("pFile != nullptr", __FILE__, __LINE__, nullptr);
    }
}
