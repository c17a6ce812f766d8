// SPDX-License-Identifier: Apache-2.0
#include "Status.h"

#include <gtest/gtest.h>

namespace zelctl {
namespace {

// A new status does not compile before it stands here, and then the test wants its line.
bool isStatus(Status status) {
    switch (status) {
        case kDone:
        case kFailed:
        case kBadUsage:
        case kServiceDown:
        case kNoBus:
        case kNoDaemon:
        case kBadAnswer:
        case kNotStarted:
        case kNoAnswer:
        case kNotPermitted:
        case kNotExecutable:
        case kNotFound:
        case kSignal:
            return true;
    }
    return false;
}

std::string numberColumn(int number) {
    const std::string text = std::to_string(number) + (number == 128 ? "+N" : "");
    return '\n' + std::string(7 - text.size(), ' ') + text + "  ";
}

TEST(StatusTest, EveryStatusHasOneLineInTheHelpAndNoOtherNumberHas) {
    const std::string table = statusTable();

    for (int number = 0; number < 256; ++number) {
        SCOPED_TRACE(number);
        const std::size_t line = table.find(numberColumn(number));
        EXPECT_EQ(line != std::string::npos, isStatus(static_cast<Status>(number)));
        if (line != std::string::npos) {
            EXPECT_EQ(table.find(numberColumn(number), line + 1), std::string::npos);
        }
    }
}

}  // namespace
}  // namespace zelctl
