// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Tables whose rows stand for enumerators, checked when they are compiled.
 */
#ifndef ZELCTL_ROWS_H
#define ZELCTL_ROWS_H

#include <array>
#include <cstddef>

namespace zelctl {

/**
 * Whether the rows are those of the enumerators from @p first to @p last, each once and in their order.
 *
 * @param key  the member of a row that holds its enumerator
 */
template <typename Row, std::size_t N, typename Enumeration>
constexpr bool hasARowForEach(const std::array<Row, N>& rows, Enumeration Row::*key, Enumeration first,
                              Enumeration last) {
    const auto begin = static_cast<std::size_t>(first);
    if (N != static_cast<std::size_t>(last) - begin + 1) {
        return false;
    }
    for (std::size_t i = 0; i < N; ++i) {
        if (static_cast<std::size_t>(rows[i].*key) != begin + i) {
            return false;
        }
    }
    return true;
}

}  // namespace zelctl

#endif
