// SPDX-License-Identifier: Apache-2.0
#include "Journal.h"

#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>

#include <array>

namespace {

void write(const std::string& priority, const std::string& line) {
    std::string message = "MESSAGE=" + line;
    std::string level = "PRIORITY=" + priority;
    std::string identifier = "SYSLOG_IDENTIFIER=zel-daemon";
    const std::array<iovec, 3> fields{iovec{message.data(), message.size()},
                                      iovec{level.data(), level.size()},
                                      iovec{identifier.data(), identifier.size()}};
    sd_journal_sendv(fields.data(), static_cast<int>(fields.size()));
}

}  // namespace

void journalInfo(const std::string& line) {
    write(std::to_string(LOG_INFO), line);
}

void journalError(const std::string& line) {
    write(std::to_string(LOG_ERR), line);
}
