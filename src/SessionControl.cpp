// SPDX-License-Identifier: Apache-2.0
#include "SessionControl.h"

#include <sys/stat.h>
#include <tzplatform_config.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <utility>

#include "Diagnostics.h"
#include "GuardedFile.h"
#include "TCMessageBuffer.h"
#include "ZelApiLite.h"
#include "ZelDaemonStateManager.h"

namespace {

constexpr const char* kStateFile = "/tmp/zel_lite_sessions_state.txt";
constexpr const char* kTemporaryStateFile = "/tmp/zel_lite_sessions_state_tmp.txt";
// Far more than the sessions of all connections that a bus admits, far less than what would hurt the set.
constexpr off_t kMaxStateSize = off_t{64} * 1024 * 1024;

// Releases of the set number this folder's variable differently; the switches stay where they are.
static_assert(TZ_SYS_ETC == 6, "the folder of the switches is the platform's variable 6");

bool IsSwitchPresent(const char* name) {
    const char* path = tzplatform_mkpath(TZ_SYS_ETC, name);
    return path != nullptr && access(path, F_OK) == 0;
}

// The buffer asks for memory that it might write to, so the text is a copy.
void PushText(TCMessageBuffer& buffer, std::string text) {
    buffer.PushInt(static_cast<int>(text.size()));
    buffer.WriteConcatenated(text.size(), text.data(), -1);
}

// The length is the file's word: it is held against what the file has before anything is allocated for it.
bool ReadText(TCMessageBuffer& buffer, unsigned int& offset, std::string& text) {
    int length = -1;
    if (!buffer.ReadInt(&length, offset) || length < 0) {
        return false;
    }
    const unsigned int begin = offset + static_cast<unsigned int>(sizeof length);
    const auto size = static_cast<unsigned int>(length);
    if (size > buffer.GetContentSize() - begin) {
        return false;
    }
    text.assign(size, '\0');
    offset = begin + size;
    return buffer.ReadConcatenated(size, text.data(), begin);
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

// A full disk ends a write early without an error.
bool WriteAtOnce(int fd, const void* bytes, std::size_t size) {
    errno = ENOSPC;
    const ssize_t written = write(fd, bytes, size);
    return written >= 0 && static_cast<std::size_t>(written) == size;
}

}  // namespace

TCSessionControl::TCSessionControl(TCZelDaemonStateManager& stateManager) : m_stateManager(stateManager) {
    if (!m_loadState()) {
        ZEL_LOG_ERROR("Can not load session state");
    }
    m_isDebug = ZelApiLite::LiteUtility::IsDebug();
    m_disableTracing = IsSwitchPresent("zel-lite/zel_lite_disable_tracing");
    m_aggressiveTerminate = IsSwitchPresent("zel-lite/zel_lite_aggressive_terminate");
}

TCSessionControl::~TCSessionControl() = default;

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
    return true;
}

void TCSessionControl::CloseOnCrash(const std::string& sessionId) {
    {
        const std::lock_guard<std::mutex> lock(m_sessionsMutex);
        if (m_sessions.count(sessionId) == 0) {
            return;
        }
    }
    Close(sessionId);
}

bool TCSessionControl::IsAnySessionActive() {
    const std::lock_guard<std::mutex> lock(m_sessionsMutex);
    return !m_sessions.empty();
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

bool TCSessionControl::m_saveState() {
    try {
        return m_sessions.empty() ? m_removeState() : m_writeState();
    } catch (const std::exception&) {
        return false;
    }
}

bool TCSessionControl::m_removeState() {
    const bool removed = std::remove(kStateFile) == 0;
    const bool exists = access(kStateFile, F_OK) == 0;
    if (exists) {
        ZEL_LOG_FROM("m_saveState", DLOG_ERROR, "Can not remove state file");
        return false;
    }
    ZEL_LOG_FROM("m_saveState", DLOG_INFO, "State file removed, removed(%d), exists(%d)", removed, exists);
    return true;
}

// The table is written beside the state file and renamed over it, so a reader finds the old one or the new
// one.
bool TCSessionControl::m_writeState() {
    constexpr const char* kCaller = "m_saveState";
    TCMessageBuffer buffer;
    buffer.PushInt(static_cast<int>(m_sessions.size()));
    for (const auto& [sessionId, data] : m_sessions) {
        PushText(buffer, sessionId);
        PushText(buffer, data.progName);
        PushText(buffer, data.pid);
    }
    if (IsSymbolicLink(kTemporaryStateFile)) {
        ReportAssertion("0", __FILE__, kCaller, __LINE__);
        return false;
    }
    {
        const TCFileDescriptor file = CreateOwnFile(kTemporaryStateFile);
        if (!file) {
            ZEL_LOG_FROM(kCaller, DLOG_ERROR, "Open error: %s", std::strerror(errno));
            return false;
        }
        const std::size_t size = buffer.GetContentSize();
        if (!WriteAtOnce(file.Get(), buffer.GetAsVoidFromOffset(0), size)) {
            ZEL_LOG_FROM(kCaller, DLOG_ERROR, "Write error: %s, size: %lu", std::strerror(errno),
                         static_cast<unsigned long>(size));
            return false;
        }
    }
    if (std::rename(kTemporaryStateFile, kStateFile) != 0) {
        ZEL_LOG_FROM(kCaller, DLOG_ERROR, "Can not rename state tmp file");
        return false;
    }
    return true;
}

bool TCSessionControl::m_loadState() {
    const TCFileDescriptor file = OpenOwnFile(kStateFile);
    if (!file) {
        if (access(kStateFile, F_OK) == 0) {
            ZEL_LOG_ERROR("Can not open state file");
            return false;
        }
        ZEL_LOG_INFO("State file does not exist. Clean session.");
        return true;
    }
    struct stat status {};
    fstat(file.Get(), &status);
    if (status.st_size < static_cast<off_t>(sizeof(std::int32_t)) || status.st_size > kMaxStateSize) {
        ZEL_LOG_ERROR("Error read, contentSize(%d)", static_cast<int>(status.st_size));
        return false;
    }
    try {
        TCMessageBuffer content;
        content.Resize(static_cast<unsigned int>(status.st_size));
        return ReadAll(file.Get(), content.GetAsVoidFromOffset(0), content.GetContentSize()) &&
               m_readSessions(content);
    } catch (const std::exception&) {
        return false;
    }
}

// What was read before a defect is kept: each of those sessions has an owner who counts on the service.
bool TCSessionControl::m_readSessions(TCMessageBuffer& content) {
    constexpr const char* kCaller = "m_loadState";
    const auto contentSize = static_cast<int>(content.GetContentSize());
    int sessionsNum = 0;
    content.ReadInt(&sessionsNum, 0);
    if (sessionsNum < 1) {
        ZEL_LOG_FROM(kCaller, DLOG_ERROR, "Error read, sessionsNum(%d), contentSize(%d)", sessionsNum,
                     contentSize);
        return false;
    }
    ZEL_LOG_FROM(kCaller, DLOG_INFO, "Read sessions, sessionsNum(%d), contentSize(%d)", sessionsNum,
                 contentSize);
    unsigned int offset = sizeof(std::int32_t);
    for (int i = 0; i < sessionsNum; ++i) {
        std::string sessionId;
        SessionData data;
        if (!ReadText(content, offset, sessionId) || !ReadText(content, offset, data.progName) ||
            !ReadText(content, offset, data.pid)) {
            return false;
        }
        ZEL_LOG_FROM(kCaller, DLOG_INFO, "Load state, sessionId(%s), progName(%s), pid(%s)",
                     sessionId.c_str(), data.progName.c_str(), data.pid.c_str());
        m_sessions[sessionId] = std::move(data);
    }
    return true;
}
