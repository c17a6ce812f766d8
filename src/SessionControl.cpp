// SPDX-License-Identifier: Apache-2.0
#include "SessionControl.h"

#include <signal.h>
#include <sys/stat.h>
#include <tzplatform_config.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <limits>
#include <memory>
#include <utility>

#include "DebugReport.h"
#include "Diagnostics.h"
#include "GuardedFile.h"
#include "TCMessageBuffer.h"
#include "ZelApiLite.h"
#include "ZelDaemonStateManager.h"

namespace {

constexpr const char* kTvViewerState = "memory/tv-viewer/viewer_state";

// The build finds the variable's name: releases of the set give the number 6 to different ones.
constexpr tzplatform_variable kSwitchFolder = ZEL_SWITCH_FOLDER;
static_assert(kSwitchFolder == 6, "the folder of the switches is the platform's variable 6");

bool IsSwitchPresent(const char* name) {
    const char* path = tzplatform_mkpath(kSwitchFolder, name);
    return path != nullptr && access(path, F_OK) == 0;
}

}  // namespace

TCSessionControl::TCSessionControl(TCZelDaemonStateManager& stateManager) : m_stateManager(stateManager) {
    if (!m_loadState()) {
        ZEL_LOG_ERROR("Can not load session state");
    }
    m_isDebug = ZelApiLite::LiteUtility::IsDebug();
    m_disableTracing = IsSwitchPresent("zel-lite/zel_lite_disable_tracing");
    m_aggressiveTerminate = IsSwitchPresent("zel-lite/zel_lite_aggressive_terminate");
    m_stopThread = false;
    m_thread = std::thread(&TCSessionControl::m_ThreadRunFunc, this);
    vconf_notify_key_changed(kTvViewerState, m_tvViewerVconfCallback, this);
}

TCSessionControl::~TCSessionControl() {
    vconf_ignore_key_changed(kTvViewerState, m_tvViewerVconfCallback);
    m_stopThread = true;
    m_threadCondition.notify_all();
    m_thread.join();
}

bool TCSessionControl::Open(const std::string& sessionId, const std::string& progName,
                            const std::string& pid) {
    const std::lock_guard<std::mutex> lock(m_sessionsMutex);
    return m_Open(sessionId, progName, pid);
}

bool TCSessionControl::m_Open(const std::string& sessionId, const std::string& progName,
                              const std::string& pid) {
    if (!m_sessions.emplace(sessionId, SessionData{progName, pid}).second) {
        ZEL_LOG_ERROR("Try to open already connected session: sessionId(%s), progName(%s), pid(%s)",
                      sessionId.c_str(), progName.c_str(), pid.c_str());
        return false;
    }
    ZEL_LOG_INFO(
        "call Notify(TRIGGER_TYPE_START_ZEL_MAIN, TSNotifyData()), sessionId(%s), progName(%s), pid(%s), "
        "terminated(%d)",
        sessionId.c_str(), progName.c_str(), pid.c_str(), m_stateManager.IsZelTerminated());
    if (!m_stateManager.Notify(TRIGGER_TYPE_START_ZEL_MAIN, TSNotifyData())) {
        // The session stays: its owner's wish stands, and is withdrawn by closing it.
        ZEL_LOG_ERROR("ERROR: FAILED to start ZEL when Opening session, sessionId(%s), progName(%s), pid(%s)",
                      sessionId.c_str(), progName.c_str(), pid.c_str());
        return false;
    }
    if (!m_saveState()) {
        ZEL_ASSERT_FAILED("saved");
    }
    return true;
}

bool TCSessionControl::Close(const std::string& sessionId) {
    const std::lock_guard<std::mutex> lock(m_sessionsMutex);
    return m_Close(sessionId);
}

bool TCSessionControl::m_Close(const std::string& sessionId) {
    if (m_sessions.erase(sessionId) == 0) {
        ZEL_LOG_ERROR("There is no session to close: sessionId(%s)", sessionId.c_str());
        return false;
    }
    if (!m_saveState()) {
        ZEL_ASSERT_FAILED("saved");
    }
    if (m_aggressiveTerminate && m_sessions.empty()) {
        m_tryTerminateWithDelay();
    }
    return true;
}

void TCSessionControl::CloseOnCrash(const std::string& sessionId) {
    m_budget.MarkOwnerLeft(sessionId);
    {
        const std::lock_guard<std::mutex> lock(m_sessionsMutex);
        if (m_sessions.count(sessionId) == 0) {
            return;
        }
    }
    Close(sessionId);
    if (!m_isDebug) {
        return;
    }
    TTraces traces;
    {
        const std::lock_guard<std::mutex> lock(m_debugMutex);
        const auto record = m_debugRecords.find(sessionId);
        if (record == m_debugRecords.end()) {
            ZEL_LOG_INFO("All traces closed, sessionId(%s)", sessionId.c_str());
            return;
        }
        traces = record->second.traces;
    }
    for (const auto& [traceId, trace] : traces) {
        CloseDebugTrace(sessionId, traceId);
    }
}

bool TCSessionControl::IsAnySessionActive() {
    const std::lock_guard<std::mutex> lock(m_sessionsMutex);
    return !m_sessions.empty();
}

TCSessionControl::TSessions TCSessionControl::m_copySessions() {
    const std::lock_guard<std::mutex> lock(m_sessionsMutex);
    return m_sessions;
}

namespace {

// A pid is a 32-bit number; a text beyond it means the largest, as where long has 32 bits.
pid_t ParsePid(const std::string& text) {
    using TSLimits = std::numeric_limits<std::int32_t>;
    return static_cast<pid_t>(
        std::clamp<long>(std::strtol(text.c_str(), nullptr, 10), TSLimits::min(), TSLimits::max()));
}

}  // namespace

void TCSessionControl::CheckPIDs() {
    const TSessions sessions = m_copySessions();
    ZEL_LOG_INFO("Check PIDs, sessionsNum(%d)", static_cast<int>(sessions.size()));
    for (const auto& [sessionId, data] : sessions) {
        const pid_t pid = ParsePid(data.pid);
        if (pid == 0) {
            ZEL_LOG_ERROR("Can not check pid");
        } else if (kill(pid, 0) != 0) {
            ZEL_LOG_ERROR("Application not running, pid(%d)", pid);
            CloseOnCrash(sessionId);
        }
    }
}

namespace {

// Under this id the report shows why the service refused to terminate.
constexpr const char* kTerminateErrors = "##_LAST_TERMINATE_ERRORS";
constexpr int kTerminateDelaySeconds = 10;

}  // namespace

bool TCSessionControl::TryTerminateZel() {
    const std::lock_guard<std::mutex> sessionsLock(m_sessionsMutex);
    const std::lock_guard<std::mutex> debugLock(m_debugMutex);
    ZEL_LOG_INFO("Try Terminate ZEL");
    m_lastTryTerminateTime = t_getTimeMs();
    m_lastTryTerminateResult = false;
    m_closeErrorTraces();
    m_clearRecentTraces();
    const bool disableSessionsCheck = m_isSessionsCheckDisabled();
    if (!disableSessionsCheck && !m_sessions.empty()) {
        m_logOpenSessions();
        return false;
    }
    std::vector<ETerminateErrorType> errors;
    TSZelData data;
    const bool terminated = m_stateManager.RequestTerminate(errors, data);
    if (terminated) {
        m_closeAllTraces();
    }
    m_termianteErrorsCount = m_isDebug ? static_cast<std::int32_t>(errors.size()) : 0;
    ZEL_LOG_INFO("m_isDebug(%d), disableSessionsCheck(%d), m_termianteErrorsCount(%d)", m_isDebug,
                 disableSessionsCheck, m_termianteErrorsCount);
    m_openErrorTraces(errors);
    m_lastTryTerminateResult = terminated;
    return terminated;
}

void TCSessionControl::m_closeErrorTraces() {
    for (std::int32_t i = 0; i < m_termianteErrorsCount; ++i) {
        m_CloseDebugTrace(kTerminateErrors, i);
    }
    m_termianteErrorsCount = 0;
}

// Looked for at each attempt, so that a tester may switch it while the daemon runs.
bool TCSessionControl::m_isSessionsCheckDisabled() const {
    return m_isDebug && IsSwitchPresent("zel-lite/zel_lite_disable_opened_sessions_check");
}

void TCSessionControl::m_logOpenSessions() const {
    constexpr const char* kCaller = "TryTerminateZel";
    ZEL_LOG_FROM(kCaller, DLOG_ERROR,
                 "Can not terminate zel-daemon. There are sessions open, activeSessionsCount(%d)",
                 static_cast<int>(m_sessions.size()));
    for (const auto& [sessionId, data] : m_sessions) {
        ZEL_LOG_FROM(kCaller, DLOG_ERROR, "Opened Session, sessionId(%s), progName(%s), pid(%s)",
                     sessionId.c_str(), data.progName.c_str(), data.pid.c_str());
    }
}

// Closing takes a trace out of the table, so a copy leads the way.
void TCSessionControl::m_closeAllTraces() {
    constexpr const char* kCaller = "TryTerminateZel";
    const auto records = m_debugRecords;
    for (const auto& [sessionId, record] : records) {
        for (const auto& [traceId, trace] : record.traces) {
            ZEL_LOG_FROM(kCaller, DLOG_ERROR,
                         "Force to close debug trace, sessionId(%s), progName(%s), pid(%s), traceID(%lld)",
                         sessionId.c_str(), record.progName.c_str(), record.pid.c_str(),
                         static_cast<long long>(traceId));
            ZEL_LOG_FROM(kCaller, DLOG_ERROR, "ST(%s)", trace.stackTrace.c_str());
            m_CloseDebugTrace(sessionId, traceId);
        }
    }
}

void TCSessionControl::m_openErrorTraces(const std::vector<ETerminateErrorType>& errors) {
    for (std::int32_t i = 0; i < m_termianteErrorsCount; ++i) {
        const int error = errors[static_cast<std::size_t>(i)];
        m_OpenDebugTrace(kTerminateErrors, i,
                         "Termination error (ETerminateErrorType): " + std::to_string(error),
                         kTerminateErrors, "zel-daemon", "-1", ESessionControl_ProgLang_Cpp);
    }
}

bool TCSessionControl::TryTerminateZelWithAppLaunch(bool alwaysLaunchApp) {
    const bool terminated = TryTerminateZel();
    if (alwaysLaunchApp || (m_isDebug && !terminated)) {
        ZEL_LOG_INFO("Launch zel-lite-app, alwaysLaunchApp(%d), terminated(%d)", alwaysLaunchApp, terminated);
        m_stateManager.LaunchZelLiteApp(false);
    }
    return terminated;
}

// Attempts are neither merged nor cancelled: a session opened meanwhile makes its attempt a refusal.
guint TCSessionControl::m_tryTerminateWithDelay() {
    ZEL_LOG_ERROR("Will try to terminate ZEL after %d seconds", kTerminateDelaySeconds);
    return g_timeout_add_seconds(kTerminateDelaySeconds, m_tryTerminateCallback, this);
}

gboolean TCSessionControl::m_tryTerminateCallback(gpointer userData) {
    ZEL_LOG_ERROR("Try to terminate ZEL after delay");
    static_cast<TCSessionControl*>(userData)->TryTerminateZel();
    return G_SOURCE_REMOVE;
}

namespace {

constexpr std::chrono::seconds kAgeingPeriod{30};

}  // namespace

// Any wake-up ages, also one without a reason: ageing twice does no harm.
void TCSessionControl::m_ThreadRunFunc() {
    ZEL_LOG_INFO("Helper Thread Start");
    while (!m_stopThread) {
        std::unique_lock<std::mutex> lock(m_debugMutex);
        // NOLINTNEXTLINE(bugprone-spuriously-wake-up-functions)
        m_threadCondition.wait_until(lock, std::chrono::steady_clock::now() + kAgeingPeriod);
        if (m_stopThread) {
            ZEL_LOG_INFO("Helper Thread End");
            return;
        }
        t_removeOldRecords();
    }
}

void TCSessionControl::m_tvViewerVconfCallback(keynode_t* keynode, void* userData) {
    const char* name = vconf_keynode_get_name(keynode);
    if (userData == nullptr || name == nullptr || std::strcmp(name, kTvViewerState) != 0) {
        ZEL_LOG_ERROR("vconf callback error, sessionControl(%p), name(%p), nameStr(%s)", userData,
                      static_cast<const void*>(name), name == nullptr ? "" : name);
        return;
    }
    static_cast<TCSessionControl*>(userData)->m_recordTvViewerState();
}

void TCSessionControl::m_recordTvViewerState() {
    constexpr const char* kCaller = "m_tvViewerVconfCallback";
    const std::unique_ptr<char, decltype(&std::free)> value(vconf_get_str(kTvViewerState), &std::free);
    if (value == nullptr) {
        ZEL_LOG_FROM(kCaller, DLOG_ERROR, "Getting vconf key failed, key(%s)", kTvViewerState);
        return;
    }
    const std::lock_guard<std::mutex> lock(m_debugMutex);
    m_tvViewerStateChangeTime = t_getTimeMs();
    m_tvViewerState = value.get();
    ZEL_LOG_FROM(kCaller, DLOG_INFO, "vconf tv-viewer state(%s)", value.get());
}

namespace {

constexpr std::size_t kMaxOpenTraces = 50;

// Whether what was closed at @p time is not shown any more: 19,999 ms after it is, 20,000 ms after it is not.
// A time later than now is from before the clock's wrap; it would not become old for weeks.
constexpr bool IsOld(std::int64_t time, std::int64_t now) {
    return time < now - 19'999 || time > now;
}

}  // namespace

void TCSessionControl::OpenDebugTrace(const std::string& sessionId, std::int64_t traceId,
                                      const std::string& stackTrace, const std::string& processName,
                                      const std::string& progName, const std::string& pid,
                                      ESessionControl_ProgLang language) {
    const std::lock_guard<std::mutex> lock(m_debugMutex);
    std::size_t size = TCTraceBudget::TraceSize(stackTrace);
    if (m_debugRecords.count(sessionId) == 0) {
        size += TCTraceBudget::RecordSize(sessionId, processName, progName, pid);
    }
    if (m_disableTracing || m_makeRoom(sessionId, size)) {
        m_OpenDebugTrace(sessionId, traceId, stackTrace, processName, progName, pid, language);
    }
}

// Makes room for a trace of @p size bytes. False when it does not fit.
bool TCSessionControl::m_makeRoom(const std::string& sessionId, std::size_t size) {
    const int forgottenBefore = m_forgottenNum;
    const auto record = m_debugRecords.find(sessionId);
    while (!m_budget.AdmitsSession(sessionId, size) && record != m_debugRecords.end() &&
           m_whatIsForgettable(record->second) == EForgettable::kClosedTrace) {
        m_forgetOne(record);
    }
    for (const EForgettable kind : {EForgettable::kClosedTrace, EForgettable::kRecordWithoutOpenTrace,
                                    EForgettable::kOpenTraceOfOneWhoLeft}) {
        if (!m_budget.AdmitsAll(size)) {
            m_forgetOfLargest(kind, sessionId, size);
        }
    }
    const bool fits = m_budget.AdmitsSession(sessionId, size) && m_budget.AdmitsAll(size);
    m_refusedNum += fits ? 0 : 1;
    if (!fits || m_forgottenNum != forgottenBefore) {
        m_logOverBudget();
    }
    return fits;
}

TCSessionControl::EForgettable TCSessionControl::m_whatIsForgettable(const DebugRecord& record) const {
    if (m_recentTraces.count(record.sessionId) != 0) {
        return EForgettable::kClosedTrace;
    }
    if (record.traces.empty()) {
        return EForgettable::kRecordWithoutOpenTrace;
    }
    return m_budget.HasOwnerLeft(record.sessionId) ? EForgettable::kOpenTraceOfOneWhoLeft
                                                   : EForgettable::kNothing;
}

// Forgets things of one kind, each time of the session that holds most, until @p size bytes fit. The record
// of the session that needs the room is about to be used, so it stays.
void TCSessionControl::m_forgetOfLargest(EForgettable kind, const std::string& sessionId, std::size_t size) {
    // More than needed, so that not every small trace costs a look at all records.
    constexpr std::size_t kSpare = std::size_t{64} * 1024;
    std::vector<std::pair<std::size_t, TDebugRecords::iterator>> largest;
    for (auto record = m_debugRecords.begin(); record != m_debugRecords.end(); ++record) {
        const bool isNeeded = kind == EForgettable::kRecordWithoutOpenTrace && record->first == sessionId;
        if (m_whatIsForgettable(record->second) == kind && !isNeeded) {
            largest.emplace_back(m_budget.Held(record->first), record);
        }
    }
    const auto holdsLess = [](const auto& left, const auto& right) { return left.first < right.first; };
    std::make_heap(largest.begin(), largest.end(), holdsLess);
    while (!largest.empty() && !m_budget.AdmitsAll(size + kSpare)) {
        std::pop_heap(largest.begin(), largest.end(), holdsLess);
        auto& [held, record] = largest.back();
        if (m_forgetOne(record)) {
            held = m_budget.Held(record->first);
            std::push_heap(largest.begin(), largest.end(), holdsLess);
        } else {
            largest.pop_back();
        }
    }
}

// Forgets the oldest closed trace, else the oldest open one; a record goes with its last trace or without
// one. Returns whether the record is there and has more of the same kind.
bool TCSessionControl::m_forgetOne(TDebugRecords::iterator record) {
    ++m_forgottenNum;
    if (const auto recent = m_recentTraces.find(record->first); recent != m_recentTraces.end()) {
        m_eraseOldestRecent(recent->first, recent->second, 1);
        if (!recent->second.empty()) {
            return true;
        }
        m_recentTraces.erase(recent);
        return false;
    }
    TTraces& traces = record->second.traces;
    if (!traces.empty()) {
        const auto oldest =
            std::min_element(traces.begin(), traces.end(), [](const auto& left, const auto& right) {
                return left.second.creationTime < right.second.creationTime;
            });
        m_budget.Remove(record->first, TCTraceBudget::TraceSize(oldest->second.stackTrace));
        traces.erase(oldest);
    }
    if (!traces.empty()) {
        return true;
    }
    m_eraseRecord(record);
    return false;
}

// One line a second at most, so that it can't fill the log either.
void TCSessionControl::m_logOverBudget() {
    constexpr std::int64_t kPeriodMs = 1000;
    const std::int64_t now = t_getTimeMs();
    if (now >= m_overBudgetLogTime && now < m_overBudgetLogTime + kPeriodMs) {
        return;
    }
    ZEL_LOG_FROM("OpenDebugTrace", DLOG_ERROR,
                 "Traces are over the budget, forgottenNum(%d), refusedNum(%d), heldSize(%zu)",
                 m_forgottenNum, m_refusedNum, m_budget.Total());
    m_overBudgetLogTime = now;
    m_forgottenNum = 0;
    m_refusedNum = 0;
}

void TCSessionControl::m_OpenDebugTrace(const std::string& sessionId, std::int64_t traceId,
                                        const std::string& stackTrace, const std::string& processName,
                                        const std::string& progName, const std::string& pid,
                                        ESessionControl_ProgLang language) {
    if (m_disableTracing) {
        ZEL_LOG_INFO("Tracing disabled");
        return;
    }
    const auto [entry, isNew] = m_debugRecords.emplace(
        sessionId, DebugRecord{sessionId, processName, progName, pid, {}, 0, language});
    if (isNew) {
        m_budget.Add(sessionId, TCTraceBudget::RecordSize(sessionId, processName, progName, pid));
    }
    DebugRecord& record = entry->second;
    // Even a refused open shows that the application is alive.
    record.destructionTime = 0;
    if (record.traces.size() >= kMaxOpenTraces) {
        ZEL_LOG_ERROR(
            "Can not open StackTrace, traces limit reached, pid(%s), processTracesNum(%d), traceId(%lld)",
            pid.c_str(), static_cast<int>(record.traces.size()), static_cast<long long>(traceId));
        return;
    }
    if (!record.traces.emplace(traceId, StackTrace{traceId, t_getTimeMs(), 0, stackTrace}).second) {
        ZEL_LOG_ERROR("Can not open StackTrace, traceId already present, pid(%s), traceId(%lld)", pid.c_str(),
                      static_cast<long long>(traceId));
        return;
    }
    m_budget.Add(sessionId, TCTraceBudget::TraceSize(stackTrace));
}

void TCSessionControl::CloseDebugTrace(const std::string& sessionId, std::int64_t traceId) {
    const std::lock_guard<std::mutex> lock(m_debugMutex);
    m_CloseDebugTrace(sessionId, traceId);
}

void TCSessionControl::m_CloseDebugTrace(const std::string& sessionId, std::int64_t traceId) {
    if (m_disableTracing) {
        return;
    }
    const auto record = m_debugRecords.find(sessionId);
    if (record == m_debugRecords.end()) {
        ZEL_LOG_ERROR("Can not close StackTrace, sessionId not present, sessionId(%s)", sessionId.c_str());
        return;
    }
    auto& traces = record->second.traces;
    const auto trace = traces.find(traceId);
    if (trace == traces.end()) {
        ZEL_LOG_ERROR("Can not close StackTrace, traceId not present, traceId(%lld)",
                      static_cast<long long>(traceId));
        return;
    }
    const std::int64_t now = t_getTimeMs();
    trace->second.destructionTime = now;
    m_recentTraces[sessionId].push_back(std::move(trace->second));
    traces.erase(trace);
    if (traces.empty()) {
        record->second.destructionTime = now;
    }
}

void TCSessionControl::t_removeOldRecords() {
    ZEL_LOG_INFO("Remove old records");
    const std::int64_t now = t_getTimeMs();
    m_removeOldTraces(now);
    for (auto record = m_debugRecords.begin(); record != m_debugRecords.end();) {
        const std::int64_t time = record->second.destructionTime;
        record = time != 0 && IsOld(time, now) ? m_eraseRecord(record) : std::next(record);
    }
}

// The record has no open traces.
TCSessionControl::TDebugRecords::iterator TCSessionControl::m_eraseRecord(TDebugRecords::iterator record) {
    const DebugRecord& data = record->second;
    m_budget.Remove(record->first,
                    TCTraceBudget::RecordSize(record->first, data.processName, data.progName, data.pid));
    return m_debugRecords.erase(record);
}

// Each list is ordered by the time of closing, so the old ones are those before the first young one.
void TCSessionControl::m_removeOldTraces(std::int64_t now) {
    for (auto entry = m_recentTraces.begin(); entry != m_recentTraces.end();) {
        std::deque<StackTrace>& traces = entry->second;
        const auto firstYoung = std::find_if(traces.begin(), traces.end(), [now](const StackTrace& trace) {
            return !IsOld(trace.destructionTime, now);
        });
        const auto removed = static_cast<int>(firstYoung - traces.begin());
        m_eraseOldestRecent(entry->first, traces, static_cast<std::size_t>(removed));
        ZEL_LOG_FROM("t_removeOldRecords", DLOG_INFO,
                     "Remove recent traces, removedNum(%d), elementsLeft(%d)", removed,
                     static_cast<int>(traces.size()));
        entry = traces.empty() ? m_recentTraces.erase(entry) : std::next(entry);
    }
}

void TCSessionControl::m_eraseOldestRecent(const std::string& sessionId, std::deque<StackTrace>& traces,
                                           std::size_t count) {
    for (; count > 0; --count) {
        m_budget.Remove(sessionId, TCTraceBudget::TraceSize(traces.front().stackTrace));
        traces.pop_front();
    }
}

void TCSessionControl::m_clearRecentTraces() {
    for (auto& [sessionId, traces] : m_recentTraces) {
        m_eraseOldestRecent(sessionId, traces, traces.size());
    }
    m_recentTraces.clear();
}

std::int64_t TCSessionControl::t_getTimeMs() {
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        ZEL_LOG_ERROR("clock_gettime failed");
        return -2;
    }
    const auto scaledSeconds = static_cast<std::int32_t>(static_cast<std::uint32_t>(now.tv_sec) * 1000U);
    return std::int64_t{scaledSeconds} + now.tv_nsec / 1'000'000;
}

namespace {

constexpr const char* kStateFile = "/tmp/zel_lite_sessions_state.txt";
constexpr const char* kTemporaryStateFile = "/tmp/zel_lite_sessions_state_tmp.txt";
// Far more than the sessions of all connections that a bus admits, far less than what would hurt the set.
constexpr off_t kMaxStateSize = off_t{64} * 1024 * 1024;

// Appends a text behind its length. The buffer takes a pointer to memory that it might write to, so the text
// is a copy. Returns the number of bytes that were appended.
std::size_t PushText(TCMessageBuffer& buffer, std::string text) {
    buffer.PushInt(static_cast<int>(text.size()));
    buffer.WriteConcatenated(text.size(), text.data(), -1);
    return sizeof(std::int32_t) + text.size();
}

// A write that ends early gives no error: the next one, of the rest, gives it.
bool WriteAll(int fd, const void* source, std::size_t size) {
    const auto* bytes = static_cast<const char*>(source);
    while (size > 0) {
        const ssize_t written = write(fd, bytes, size);
        if (written <= 0) {
            return false;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

bool ReadAll(int fd, void* destination, std::size_t size) {
    auto* bytes = static_cast<char*>(destination);
    while (size > 0) {
        const ssize_t got = read(fd, bytes, size);
        if (got <= 0) {
            return false;
        }
        bytes += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

/**
 * Reads the texts of a state file one after the other.
 *
 * The lengths in the file are compared with the file's size before memory is allocated for them. What the
 * buffer's own reads return is not looked at: every destination has a value before the read.
 */
class TCStateReader {
public:
    /** @param size  the size of @p content in bytes, at least 4: the count of sessions comes first */
    TCStateReader(TCMessageBuffer& content, unsigned int size) : m_content(content), m_size(size) {}

    /** Reads the next text. @return false when the file ends before the text does */
    bool Read(std::string& text) {
        int length = -1;
        if (m_size - m_offset < sizeof length) {
            return false;
        }
        m_content.ReadInt(&length, m_offset);
        m_offset += static_cast<unsigned int>(sizeof length);
        if (length < 0 || static_cast<unsigned int>(length) > m_size - m_offset) {
            return false;
        }
        text.assign(static_cast<std::size_t>(length), '\0');
        m_content.ReadConcatenated(text.size(), text.data(), m_offset);
        m_offset += static_cast<unsigned int>(length);
        return true;
    }

private:
    TCMessageBuffer& m_content;
    unsigned int m_size;
    unsigned int m_offset = sizeof(std::int32_t);
};

}  // namespace

// A table that does not fit into memory is not saved; the caller reports that.
bool TCSessionControl::m_saveState() {
    try {
        return m_sessions.empty() ? m_removeState() : m_writeState();
    } catch (const std::exception&) {
        return false;
    }
}

bool TCSessionControl::m_removeState() {
    const bool removed = std::remove(kStateFile) == 0;
    TakeAwayPlanted(kStateFile);
    const bool exists = access(kStateFile, F_OK) == 0;
    if (exists) {
        ZEL_LOG_FROM("m_saveState", DLOG_ERROR, "Can not remove state file");
        return false;
    }
    m_replaceSavedState(TCFileDescriptor());
    ZEL_LOG_FROM("m_saveState", DLOG_INFO, "State file removed, removed(%d), exists(%d)", removed, exists);
    return true;
}

// The table is written beside the state file and renamed over it, so a reader finds the old one or the new
// one.
bool TCSessionControl::m_writeState() {
    constexpr const char* kCaller = "m_saveState";
    TCMessageBuffer buffer;
    buffer.PushInt(static_cast<int>(m_sessions.size()));
    std::size_t size = sizeof(std::int32_t);
    for (const auto& [sessionId, data] : m_sessions) {
        for (const std::string* text : {&sessionId, &data.progName, &data.pid}) {
            size += PushText(buffer, *text);
        }
    }
    if (IsSymbolicLink(kTemporaryStateFile)) {
        ReportAssertion("0", __FILE__, kCaller, __LINE__);
        TakeAwayPlanted(kTemporaryStateFile);
        return false;
    }
    TCFileDescriptor file = CreateOwnFile(kTemporaryStateFile);
    if (!file) {
        ZEL_LOG_FROM(kCaller, DLOG_ERROR, "Open error: %s", std::strerror(errno));
        return false;
    }
    if (!WriteAll(file.Get(), buffer.GetAsVoidFromOffset(0), size)) {
        ZEL_LOG_FROM(kCaller, DLOG_ERROR, "Write error: %s, size: %lu", std::strerror(errno),
                     static_cast<unsigned long>(size));
        return false;
    }
    if (!RenameOver(kTemporaryStateFile, kStateFile)) {
        ZEL_LOG_FROM(kCaller, DLOG_ERROR, "Can not rename state tmp file");
        return false;
    }
    m_replaceSavedState(std::move(file));
    return true;
}

void TCSessionControl::m_replaceSavedState(TCFileDescriptor file) {
    EmptyIfNamed(m_savedState);
    m_savedState = std::move(file);
}

bool TCSessionControl::m_loadState() {
    m_savedState = OpenOwnFile(kStateFile);
    const TCFileDescriptor& file = m_savedState;
    if (!file) {
        if (access(kStateFile, F_OK) == 0) {
            ZEL_LOG_ERROR("Can not open state file");
            return false;
        }
        ZEL_LOG_INFO("State file does not exist. Clean session.");
        return true;
    }
    // A size that can't be read counts as 0, so its line is logged too.
    struct stat status {};
    const off_t size = fstat(file.Get(), &status) == 0 ? status.st_size : 0;
    if (size < static_cast<off_t>(sizeof(std::int32_t)) || size > kMaxStateSize) {
        ZEL_LOG_ERROR("Error read, contentSize(%d)", static_cast<int>(size));
        return false;
    }
    // The exits without a line of their own: the file can't be read to its end, it ends inside a session, or
    // the memory does not suffice. The constructor logs that the load failed.
    try {
        const auto contentSize = static_cast<unsigned int>(size);
        TCMessageBuffer content;
        content.Resize(contentSize);
        return ReadAll(file.Get(), content.GetAsVoidFromOffset(0), contentSize) &&
               m_readSessions(content, contentSize);
    } catch (const std::exception&) {
        return false;
    }
}

// The sessions before a defect are kept: each of them has an owner that needs the service.
bool TCSessionControl::m_readSessions(TCMessageBuffer& content, unsigned int contentSize) {
    constexpr const char* kCaller = "m_loadState";
    int sessionsNum = 0;
    content.ReadInt(&sessionsNum, 0);
    if (sessionsNum < 1) {
        ZEL_LOG_FROM(kCaller, DLOG_ERROR, "Error read, sessionsNum(%d), contentSize(%d)", sessionsNum,
                     static_cast<int>(contentSize));
        return false;
    }
    ZEL_LOG_FROM(kCaller, DLOG_INFO, "Read sessions, sessionsNum(%d), contentSize(%d)", sessionsNum,
                 static_cast<int>(contentSize));
    TCStateReader reader(content, contentSize);
    for (int i = 0; i < sessionsNum; ++i) {
        std::string sessionId;
        SessionData data;
        if (!reader.Read(sessionId) || !reader.Read(data.progName) || !reader.Read(data.pid)) {
            return false;
        }
        ZEL_LOG_FROM(kCaller, DLOG_INFO, "Load state, sessionId(%s), progName(%s), pid(%s)",
                     sessionId.c_str(), data.progName.c_str(), data.pid.c_str());
        m_sessions[sessionId] = std::move(data);
    }
    return true;
}

std::string TCSessionControl::GetDebugInfo() {
    std::string document;
    WriteDebugInfo([&document](const std::string& piece) { document += piece; });
    return document;
}

void TCSessionControl::WriteDebugInfo(const std::function<void(std::string& piece)>& write) {
    constexpr const char* kCaller = "GetDebugInfo";
    const TSessions sessions = m_copySessions();
    const std::lock_guard<std::mutex> lock(m_debugMutex);
    TCDebugReport report(
        {m_lastTryTerminateTime, m_lastTryTerminateResult, m_tvViewerState, m_tvViewerStateChangeTime},
        write);
    ZEL_LOG_FROM(kCaller, DLOG_INFO, "Has debug info about sessionsNum(%zu)", m_debugRecords.size());
    for (const auto& [sessionId, record] : m_debugRecords) {
        // A record without open traces whose session is still open belongs to a living application.
        const bool isTerminated = record.destructionTime != 0 && sessions.count(sessionId) == 0;
        static const std::deque<StackTrace> kNone;
        const auto recent = m_recentTraces.find(sessionId);
        const std::deque<StackTrace>& recentTraces = recent == m_recentTraces.end() ? kNone : recent->second;
        if (!recentTraces.empty()) {
            ZEL_LOG_FROM(kCaller, DLOG_INFO, "Recent traces num(%zu)", recentTraces.size());
        }
        ZEL_LOG_FROM(kCaller, DLOG_INFO, "Traces num(%zu)", record.traces.size());
        if (isTerminated && recentTraces.empty() && record.traces.empty()) {
            ZEL_LOG_FROM(kCaller, DLOG_INFO, "Ignore record");
        } else {
            report.Append(record, isTerminated, recentTraces);
        }
    }
    report.Finish();
}
