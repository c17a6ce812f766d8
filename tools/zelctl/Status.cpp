// SPDX-License-Identifier: Apache-2.0
#include "Status.h"

#include <array>

#include "Text.h"

namespace zelctl {

namespace {

struct Row {
    Status status;
    const char* meaning;
};

constexpr std::array<Row, 13> kStatuses{{
    {kDone, "done; 'status': the service runs"},
    {kFailed, "it could not be done, or was refused; 'self-test': something is wrong"},
    {kBadUsage, "the command line makes no sense"},
    {kServiceDown, "'status': the daemon answers, the service does not run"},
    {kNoBus, "no system bus, or one that does not answer"},
    {kNoDaemon, "no daemon on the bus"},
    {kBadAnswer, "the daemon's answer makes no sense"},
    {kNotStarted, "'open', 'run': the service could not be started or told"},
    {kNoAnswer, "the daemon does not answer in time"},
    {kNotPermitted, "not permitted"},
    {kNotExecutable, "'run': CMD can't be executed"},
    {kNotFound, "'run': CMD is not found"},
    {kSignal, "'run': CMD was ended by signal N"},
}};

}  // namespace

std::string statusTable() {
    std::string text = "Exit status:\n";
    for (const Row& row : kStatuses) {
        const std::string number = std::to_string(row.status) + (row.status == kSignal ? "+N" : "");
        text += std::string(7 - number.size(), ' ') + number + "  " + row.meaning + '\n';
    }
    return text + "'run' otherwise exits as CMD does.";
}

Trouble::Trouble(Status status, const std::string& where, const std::string& what, const std::string& advice)
    : std::runtime_error(printable(where) + ": " + printable(what) + "; try: " + printable(advice)),
      m_status(status) {}

}  // namespace zelctl
