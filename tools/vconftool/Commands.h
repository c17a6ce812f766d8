// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What vconftool can be told to do. Every command prints what it found on standard output and what went wrong
 * on standard error, and gives the exit status.
 */
#ifndef VCONFTOOL_COMMANDS_H
#define VCONFTOOL_COMMANDS_H

#include <string>
#include <vector>

namespace vconftool {

/** How the program exits. */
enum Status : int {
    /** What was asked for is done. */
    kDone = 0,
    /** It could not be done, or was refused; nothing was changed. */
    kFailed = 1,
    /** The command line makes no sense. */
    kBadUsage = 2
};

/** Prints the value of a key. */
Status get(const std::string& key);

/**
 * Sets a key.
 *
 * @param type   the name of the value's type
 * @param value  the value as text
 * @param force  whether a key of another type may become one of this type
 */
Status set(const std::string& key, const std::string& type, const std::string& value, bool force);

/** Removes a key. */
Status unset(const std::string& key);

/**
 * Prints the keys of a folder with their values.
 *
 * @param recursive  whether folders in it are printed key by key, instead of by their name and a slash
 */
Status list(std::string folder, bool recursive);

/** Prints a line for each change of one of the keys, until a signal ends the program. */
Status watch(const std::vector<std::string>& keys);

}  // namespace vconftool

#endif
