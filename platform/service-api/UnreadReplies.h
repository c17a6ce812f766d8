// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The large replies that callers have not read yet.
 *
 * The bus keeps a reply until its receiver reads it, and counts it as its sender's. When a sender has about
 * 127 MiB of unread messages, dbus-daemon stops reading from it, so a few callers that never read large
 * replies could keep the daemon from answering anybody. Small replies are not counted: the bus drops them
 * before they amount to that.
 */
#ifndef SERVICE_API_UNREAD_REPLIES_H
#define SERVICE_API_UNREAD_REPLIES_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

/** Callable from any thread. */
class UnreadReplies {
public:
    /** A reply is large from this size on, in bytes. */
    static constexpr std::size_t kLarge = std::size_t{64} * 1024;
    /** What the callers of one user may have unread before further large replies are refused, in bytes. Root
     * may have any amount. */
    static constexpr std::size_t kOfOneUser = std::size_t{24} * 1024 * 1024;

    /** Whether a call is to be refused because its reply would probably be large, as that of the last call of
     * @p method was, and the user has too much unread. */
    bool refuses(std::int32_t method, uid_t user) const;

    /** Notes a reply that is about to be sent. */
    void sent(const std::string& caller, uid_t user, std::int32_t method, std::size_t size);

    /**
     * Notes how many bytes the bus keeps for a caller.
     *
     * @param replies  the number that callers() gave when the bus was asked; without effect when a large
     * reply was sent since
     */
    void keeps(const std::string& caller, std::uint64_t replies, std::size_t size);

    /** Callers that may have something unread, each with the number of large replies sent to it. */
    std::vector<std::pair<std::string, std::uint64_t>> callers() const;

    /** Forgets a caller that has left the bus. */
    void forget(const std::string& caller);

    /** Forgets all callers. */
    void clear();

private:
    struct Debt {
        uid_t user = 0;
        std::size_t size = 0;
        std::uint64_t replies = 0;
    };

    void setSize(std::map<std::string, Debt>::iterator debt, std::size_t size);

    mutable std::mutex m_mutex;
    std::map<std::string, Debt> m_callers;
    std::map<uid_t, std::size_t> m_users;
    /** Methods whose last reply was large. */
    std::set<std::int32_t> m_largeMethods;
};

#endif
