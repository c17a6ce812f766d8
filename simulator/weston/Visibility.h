// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * How much of each window is seen, worked out from where everything lies.
 *
 * A *piece* is one rectangle of content on the screen: a window, a part of one, or something that belongs to
 * no window, such as a menu. Pieces lie one over the other; what shines through a piece is not covered by it.
 */
#ifndef SIMULATOR_WESTON_VISIBILITY_H
#define SIMULATOR_WESTON_VISIBILITY_H

#include <vector>

#include "Region.h"

/** The numbers are those of the notifier protocol. */
enum class Visibility {
    visible = 0,    ///< nothing of it is covered
    partially = 1,  ///< a part of it is covered
    notVisible = 2  ///< none of it is seen
};

struct Piece {
    /** The window that the piece is a part of, 0 for none. A window does not cover itself. */
    int window;
    /** Where it lies. */
    Region area;
    /** Where nothing below it shines through. */
    Region opaque;
};

/** A window and how much of it is seen. */
struct Sight {
    int window;
    Visibility visibility;
};

/**
 * How much of each window is seen.
 *
 * What of a window lies beside the screen neither counts as seen nor as covered; a window that lies beside it
 * entirely is not visible.
 *
 * @param pieces  all there is, the one in front first
 * @param screen  the pixels of the screen
 * @return one entry for each window that has a piece, in the order of their foremost pieces
 */
std::vector<Sight> look(const std::vector<Piece>& pieces, const Region& screen);

#endif
