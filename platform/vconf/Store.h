// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The files behind the keys.
 *
 * A folder below the base is never reached through a symbolic link, and a key's file is a regular file:
 * whatever else lies there has no value. Everything is callable from any thread and from several processes at
 * a time.
 */
#ifndef VCONF_STORE_H
#define VCONF_STORE_H

#include <optional>
#include <string>
#include <vector>

#include "Key.h"
#include "Value.h"

namespace vconf {

/** Makes sure that the folder of a key exists. @return whether it does */
bool makeFolder(const KeyPath& path);

/** Reads a key; no value when there is no file, or none that can be read as a value. Never blocks. */
Value load(const KeyPath& path);

/** Writes a key, making its folder where needed. Who reads it gets the old value or the new. @return success
 */
bool save(const KeyPath& path, const Value& value);

/** Removes a key. @return whether it was there and is gone */
bool erase(const KeyPath& path);

/** What a folder has under one name. */
struct Entry {
    std::string name;
    bool isFolder;
};

/** Lists a folder of keys, sorted by name, without the names that no key can have; nothing when there is no
 * such folder. */
std::optional<std::vector<Entry>> list(const KeyPath& folder);

}  // namespace vconf

#endif
