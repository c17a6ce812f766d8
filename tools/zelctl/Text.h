// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Texts for people. Session ids, program names and traces come from applications: whatever they hold, a line
 * stays a line, the terminal obeys nobody, and a page holds no markup but its own.
 */
#ifndef ZELCTL_TEXT_H
#define ZELCTL_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zelctl {

/** The text with every byte that is not printable UTF-8, what turns the direction of writing, and what is not
 * seen, as \xNN. */
std::string printable(std::string_view text);

/** printable(), with what HTML gives a meaning to written as references. */
std::string escapedForHtml(std::string_view text);

/** The lines of a text; none for an empty one. A line break at the end begins no line. */
std::vector<std::string> lines(std::string_view text);

/** At most @p characters of a text that is printable; one that is cut ends in an ellipsis. */
std::string shortened(const std::string& text, std::size_t characters);

/** How many columns a printable text takes. */
std::size_t width(std::string_view text);

/** A time span as people say it: "0.250 s", "42.0 s", "3 min 20 s", "5 h 2 min", "3 d 4 h". */
std::string spanText(std::int64_t milliseconds);

/** The rows below their headings, columns aligned; cells are made printable. */
std::string table(const std::vector<std::string>& headings,
                  const std::vector<std::vector<std::string>>& rows);

/** "1 session", "2 sessions". */
std::string counted(std::size_t number, const std::string& noun);

}  // namespace zelctl

#endif
