// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The types that a key can have, and their values as text.
 */
#ifndef VCONFTOOL_TYPES_H
#define VCONFTOOL_TYPES_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vconftool {

/** How setting a key ended. */
enum class SetResult {
    /** The key has the value. */
    kDone,
    /** The text is no value of the type; nothing was changed. */
    kNoSuchValue,
    /** The key could not be written; it is what it was. */
    kNotWritten
};

/** A type, and how a value of it becomes text and back. */
struct Type {
    /** Its number in vconf.h. */
    int number;
    /** What it is called, on the command line and in what is printed. */
    std::string_view name;
    /** The value of a key; nothing when the key is not of this type. */
    std::optional<std::string> (*read)(const std::string& key);
    /** Sets a key to what the text says, whatever the key was. */
    SetResult (*write)(const std::string& key, const std::string& text);
};

/** The type of that name; null when there is none. */
const Type* typeNamed(std::string_view name);

/** The type that a key has; null when it has no value. */
const Type* typeOf(const std::string& key);

/** The names of all types. */
std::vector<std::string> typeNames();

}  // namespace vconftool

#endif
