// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The report as a page: one file, no script, nothing fetched.
 */
#ifndef ZELCTL_PAGE_H
#define ZELCTL_PAGE_H

#include <cstdint>
#include <map>
#include <string>

#include "Report.h"
#include "Sessions.h"

namespace zelctl {

/** What goes onto the page. */
struct PageContent {
    Report report;
    /** The open sessions. */
    Sessions sessions;
    /** Why they are unknown; empty when they are known. */
    std::string sessionsProblem;
    /** When sessions were opened, as far as the log tells. */
    std::map<std::string, DaemonTime> opened;
    /** The daemon's clock when the report was made. */
    DaemonTime now = 0;
    /** The same moment for people. */
    std::string when;
    /** The name of the machine. */
    std::string host;
};

/** The page, in HTML. */
std::string renderPage(const PageContent& content);

}  // namespace zelctl

#endif
