// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * How much memory the debug traces of applications may take.
 *
 * Any application may open traces, and on an ordinary set a trace stays open when its owner leaves the bus.
 * So without a limit an application could make the daemon grow until the set has no memory left. What is
 * counted is the size that a trace or a record has in the debug report, because there a character may take
 * six bytes; the memory that keeps it is not larger. So the limit also bounds the report: the IPC library
 * carries at most 32 MiB.
 */
#ifndef ZEL_LITE_TRACE_BUDGET_H
#define ZEL_LITE_TRACE_BUDGET_H

#include <cstddef>
#include <map>
#include <mutex>
#include <string>

/**
 * Counts what each session holds: its record, its open traces and its closed ones. A *holding* ends when all
 * of that is forgotten. Callable from any thread: the news that an owner has left must not wait for a report
 * that is being rendered, so it does not take session control's locks.
 */
class TCTraceBudget {
public:
    /** What all sessions may take, in bytes: what they hold and a quarter more of working memory. The report
     * is as large as what they hold and exists beside it while it is sent, so the daemon grows by 32 MiB at
     * most. */
    static constexpr std::size_t kAll = std::size_t{16} * 1024 * 1024;
    /** What one session may hold, in bytes: as much as one request of the IPC library. */
    static constexpr std::size_t kOneSession = std::size_t{1024} * 1024;

    /** Bytes that a text takes in the report at most, without its quotation marks. */
    static std::size_t SizeOf(const std::string& text);
    /** Bytes that a trace with this text takes. */
    static std::size_t TraceSize(const std::string& text);
    /** Bytes that a record takes without its traces. */
    static std::size_t RecordSize(const std::string& sessionId, const std::string& processName,
                                  const std::string& progName, const std::string& pid);

    /** Whether a session may hold @p size bytes more by its own limit. */
    bool AdmitsSession(const std::string& sessionId, std::size_t size) const;
    /** Whether all sessions together may hold @p size bytes more. */
    bool AdmitsAll(std::size_t size) const;

    void Add(const std::string& sessionId, std::size_t size);
    /** @p size must have been added before. */
    void Remove(const std::string& sessionId, std::size_t size);

    /** Notes that the owner of a session has left; no effect on a session that holds nothing. */
    void MarkOwnerLeft(const std::string& sessionId);
    bool HasOwnerLeft(const std::string& sessionId) const;

    /** Bytes that a session holds. */
    std::size_t Held(const std::string& sessionId) const;
    /** Bytes that all sessions hold. */
    std::size_t Total() const;

private:
    struct TSHolding {
        std::size_t size = 0;
        bool ownerLeft = false;
    };

    /** Guards the rest. Nothing else is locked while it is held. */
    mutable std::mutex m_mutex;
    std::map<std::string, TSHolding> m_holdings;
    std::size_t m_total = 0;
};

#endif
