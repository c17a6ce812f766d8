// SPDX-License-Identifier: Apache-2.0
#include "Journal.h"

#include <string>
#include <string_view>

namespace zelctl {

namespace {

// Days of the daemon's log; what is older tells nothing of the present.
constexpr std::uint64_t kMostLines = 50'000;

bool addMatch(sd_journal* journal, const std::string& match) {
    return sd_journal_add_match(journal, match.data(), match.size()) >= 0;
}

std::string bootMatch() {
    sd_id128_t boot{};
    if (sd_id128_get_boot(&boot) < 0) {
        return {};
    }
    char text[SD_ID128_STRING_MAX];  // as sd-id128 wants it
    return std::string("_BOOT_ID=") + sd_id128_to_string(boot, text);
}

}  // namespace

Journal::Journal() {
    sd_journal* journal = nullptr;
    if (sd_journal_open(&journal, SD_JOURNAL_LOCAL_ONLY) < 0) {
        return;
    }
    m_journal.reset(journal);
    // The fields that begin with '_' are the journal's own word.
    const std::string boot = bootMatch();
    if (!addMatch(journal, "_SYSTEMD_UNIT=zel-lite.service") || !addMatch(journal, "_UID=0") ||
        !addMatch(journal, "SYSLOG_IDENTIFIER=ZEL_LITE") || boot.empty() || !addMatch(journal, boot)) {
        m_journal.reset();
    }
}

void Journal::limitTo(unsigned int pid) {
    if (m_journal && !addMatch(m_journal.get(), "_PID=" + std::to_string(pid))) {
        m_journal.reset();
    }
}

bool Journal::skipToEnd() {
    m_placed = true;
    if (!m_journal || sd_journal_seek_tail(m_journal.get()) < 0) {
        return false;
    }
    // The end is no line: the last one is where to begin after. Where there is none, everything is yet to
    // come.
    if (sd_journal_previous(m_journal.get()) > 0) {
        return true;
    }
    sd_journal_seek_head(m_journal.get());
    return false;
}

std::optional<TimedEvent> Journal::next() {
    if (!m_journal) {
        return std::nullopt;
    }
    if (!m_placed) {
        sd_journal_seek_tail(m_journal.get());
        if (sd_journal_previous_skip(m_journal.get(), kMostLines) == static_cast<int>(kMostLines)) {
            sd_journal_previous(m_journal.get());
        } else {
            sd_journal_seek_head(m_journal.get());
        }
        m_placed = true;
    }
    while (sd_journal_next(m_journal.get()) > 0) {
        if (std::optional<Event> found = event()) {
            TimedEvent timed{std::move(*found), 0, 0};
            sd_id128_t boot{};
            sd_journal_get_realtime_usec(m_journal.get(), &timed.realtime);
            sd_journal_get_monotonic_usec(m_journal.get(), &timed.monotonic, &boot);
            return timed;
        }
    }
    return std::nullopt;
}

std::optional<Event> Journal::event() {
    constexpr std::string_view kField = "MESSAGE=";
    const void* data = nullptr;
    std::size_t size = 0;
    if (sd_journal_get_data(m_journal.get(), "MESSAGE", &data, &size) < 0 || size < kField.size()) {
        return std::nullopt;
    }
    return parseEvent(std::string_view(static_cast<const char*>(data), size).substr(kField.size()));
}

History historyOf(unsigned int pid) {
    Journal journal;
    journal.limitTo(pid);
    History history;
    while (const std::optional<TimedEvent> timed = journal.next()) {
        history.add(timed->event, static_cast<std::int64_t>(timed->monotonic / 1000));
    }
    return history;
}

}  // namespace zelctl
