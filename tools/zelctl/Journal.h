// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The daemon's lines in the journal. Anybody may write a line that looks like one of them; what the journal
 * itself says of who wrote it decides.
 */
#ifndef ZELCTL_JOURNAL_H
#define ZELCTL_JOURNAL_H

#include <systemd/sd-journal.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "Events.h"
#include "History.h"

namespace zelctl {

/** A line that means something, with the time at which it was received, in microseconds. */
struct TimedEvent {
    Event event;
    std::uint64_t realtime;
    std::uint64_t monotonic;
};

class Journal {
public:
    /** Opens the journal of this boot. A journal that can't be opened is an empty one. */
    Journal();

    /** Only the lines of one process count. To be called before anything is read. */
    void limitTo(unsigned int pid);
    /** Begins at the end: only what comes from now on is read. @return whether there is any line of the
     * daemon to read */
    bool skipToEnd();
    /** The next line that means something; none when there is no more for now. */
    std::optional<TimedEvent> next();
    /** Whether the journal was opened. */
    bool isOpen() const { return m_journal != nullptr; }
    sd_journal* get() const { return m_journal.get(); }

private:
    struct Close {
        void operator()(sd_journal* journal) const { sd_journal_close(journal); }
    };

    std::optional<Event> event();

    std::unique_ptr<sd_journal, Close> m_journal;
    bool m_placed = false;
};

/** What the log of a process of the daemon adds up to. */
History historyOf(unsigned int pid);

}  // namespace zelctl

#endif
