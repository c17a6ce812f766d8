// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What happened, in order: every fake appends a line per action, a test compares the list.
 */
#ifndef TESTS_FAKES_ACTIONS_H
#define TESTS_FAKES_ACTIONS_H

#include <string>
#include <vector>

namespace fakes {

/** The one list of this process. Callable from any thread. */
class Actions {
public:
    /** Appends an action. */
    static void add(std::string action);

    /** Gives what happened since the last call, oldest first, and forgets it. */
    static std::vector<std::string> take();
};

}  // namespace fakes

#endif
