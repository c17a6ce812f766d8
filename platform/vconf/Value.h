// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Values and how they are written down: the type's name, a line feed, and the value's text to the end of the
 * file.
 */
#ifndef VCONF_VALUE_H
#define VCONF_VALUE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

namespace vconf {

/** The value of a key; monostate when it has none. */
using Value = std::variant<std::monostate, int, bool, double, std::string>;

/** The most bytes that a file may have: a text of 1 MiB and its first line. */
constexpr std::size_t kLargestFile = 1024UL * 1024 + sizeof "string";

/** The number of @p value's type in vconf.h. */
int typeOf(const Value& value);

/** Writes @p value down; nothing for no value. */
std::string encode(const Value& value);

/**
 * Reads what encode wrote. The bytes may come from anybody: what is not exactly a value is no value.
 *
 * @param contents  the whole file
 */
Value decode(std::string_view contents);

}  // namespace vconf

#endif
