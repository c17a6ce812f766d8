// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Why the service runs or does not, what was in the way of its termination, and what would happen without
 * some of the sessions.
 */
#ifndef ZELCTL_EXPLANATION_H
#define ZELCTL_EXPLANATION_H

#include <set>
#include <string>
#include <vector>

#include "Situation.h"

namespace zelctl {

/** Something that is known, or that can't be known, and where from. */
struct Statement {
    std::string text;
    std::string source;
};

enum class Certainty { Yes, No, Unknown };

/** Whether an attempt to terminate the service is made after the last session. */
Certainty isTriedAfterLastSession(const Situation& situation);

/** Why things are as they are. */
std::vector<Statement> explain(const Situation& situation);

/**
 * What would happen if sessions were closed.
 *
 * @param ids  of the sessions; each must be open, so the situation must have the sessions
 */
std::vector<Statement> foresee(const Situation& situation, const std::set<std::string>& ids);

/** Those of the ids that no open session has. */
std::vector<std::string> unknownIds(const Situation& situation, const std::set<std::string>& ids);

/** The statements for people, a line each with its source below. */
std::string explanationText(const std::vector<Statement>& statements);

}  // namespace zelctl

#endif
