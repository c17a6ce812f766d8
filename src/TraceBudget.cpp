// SPDX-License-Identifier: Apache-2.0
#include "TraceBudget.h"

namespace {

// What the report writes around a text, and what the tables keep around it: the larger of the two. A record
// counts for more, because it also costs time: the report logs each one.
constexpr std::size_t kTraceOverhead = 176;
constexpr std::size_t kRecordOverhead = 3072;

// A quarter more for what the heap takes and what the report needs while it is rendered.
constexpr std::size_t kWorkingShare = 4;

// JSON writes a printable character of ASCII as it is, two more behind a backslash, any other byte as \uXXXX
// at most.
std::size_t SizeOfByte(char byte) {
    constexpr std::size_t kEscaped = 2;
    constexpr std::size_t kNumbered = 6;
    if (byte == '"' || byte == '\\') {
        return kEscaped;
    }
    return byte >= ' ' && byte <= '~' ? 1 : kNumbered;
}

}  // namespace

std::size_t TCTraceBudget::SizeOf(const std::string& text) {
    std::size_t size = 0;
    for (const char byte : text) {
        size += SizeOfByte(byte);
    }
    return size;
}

std::size_t TCTraceBudget::TraceSize(const std::string& text) {
    return kTraceOverhead + SizeOf(text);
}

std::size_t TCTraceBudget::RecordSize(const std::string& sessionId, const std::string& processName,
                                      const std::string& progName, const std::string& pid) {
    return kRecordOverhead + SizeOf(sessionId) + SizeOf(processName) + SizeOf(progName) + SizeOf(pid);
}

bool TCTraceBudget::AdmitsSession(const std::string& sessionId, std::size_t size) const {
    return Held(sessionId) + size <= kOneSession;
}

bool TCTraceBudget::AdmitsAll(std::size_t size) const {
    const std::size_t total = Total() + size;
    return total + total / kWorkingShare <= kAll;
}

void TCTraceBudget::Add(const std::string& sessionId, std::size_t size) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    TSHolding& holding = m_holdings[sessionId];
    holding.size += size;
    holding.ownerLeft = false;
    m_total += size;
}

void TCTraceBudget::Remove(const std::string& sessionId, std::size_t size) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto holding = m_holdings.find(sessionId);
    holding->second.size -= size;
    m_total -= size;
    if (holding->second.size == 0) {
        m_holdings.erase(holding);
    }
}

void TCTraceBudget::MarkOwnerLeft(const std::string& sessionId) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (const auto holding = m_holdings.find(sessionId); holding != m_holdings.end()) {
        holding->second.ownerLeft = true;
    }
}

bool TCTraceBudget::HasOwnerLeft(const std::string& sessionId) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto holding = m_holdings.find(sessionId);
    return holding != m_holdings.end() && holding->second.ownerLeft;
}

std::size_t TCTraceBudget::Held(const std::string& sessionId) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto holding = m_holdings.find(sessionId);
    return holding == m_holdings.end() ? 0 : holding->second.size;
}

std::size_t TCTraceBudget::Total() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_total;
}
