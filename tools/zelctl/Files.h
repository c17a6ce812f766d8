// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The daemon's files. Most are in /tmp, where everybody may plant something under their names: nothing is
 * followed, waited for or believed that is not a plain file of root.
 */
#ifndef ZELCTL_FILES_H
#define ZELCTL_FILES_H

#include <string>
#include <vector>

#include "Situation.h"

namespace zelctl {

constexpr const char* kStateFolder = "/tmp";
constexpr const char* kStateFile = "/tmp/zel_lite_sessions_state.txt";

/** The markers in /tmp, in the order of MarkerIndex. */
std::vector<Marker> markers();

/** The switches of the set, in the order of SwitchIndex. */
std::vector<Marker> switches();

/** A file as it is: whether it is there, when it was changed, and what is wrong with it. */
Marker inspect(const std::string& path, const std::string& meaning);

/**
 * The saved sessions; none where there is no state file.
 *
 * @throw std::runtime_error that says why they can't be read
 */
Sessions savedSessions();

}  // namespace zelctl

#endif
