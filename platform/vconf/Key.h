// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Where the file of a key is.
 */
#ifndef VCONF_KEY_H
#define VCONF_KEY_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vconf {

/** How names begin that are no keys: files that are being written have them until they are complete. */
constexpr std::string_view kReservedPrefix = ".vconf-";

/** Where the file of a key is. */
struct KeyPath {
    /** A folder that every machine has. */
    std::string base;
    /** The folders below it that lead to the file, outermost first. */
    std::vector<std::string> folders;
    /** The name of the file. */
    std::string name;

    /** The absolute path of the folder that holds the file. */
    std::string folder() const;
};

/** Finds where the file of @p key is; nothing for null and for a bad key. */
std::optional<KeyPath> locateKey(const char* key);

}  // namespace vconf

#endif
