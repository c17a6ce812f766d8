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

/** Where the file of a key, or a folder of keys, is. */
struct KeyPath {
    /** A folder that every machine has. */
    std::string base;
    /** The folders below it that lead to the file, outermost first; the last is the folder of keys. */
    std::vector<std::string> folders;
    /** The name of the file; empty for a folder. */
    std::string name;

    /** The absolute path of the folder. */
    std::string folder() const;
};

/** Whether a key may have @p component as a part. */
bool isGoodComponent(std::string_view component);

/** Finds where the file of @p key is; nothing for null and for a bad key. */
std::optional<KeyPath> locateKey(const char* key);

/** Finds where @p folder is, of which one component is enough; nothing for null and for one that can't hold
 * keys. */
std::optional<KeyPath> locateFolder(const char* folder);

}  // namespace vconf

#endif
