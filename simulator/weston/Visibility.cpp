// SPDX-License-Identifier: Apache-2.0
#include "Visibility.h"

#include <algorithm>

namespace {

Visibility visibilityOf(int window, const std::vector<Piece>& pieces, const Region& screen) {
    Region whole;
    Region seen;
    Region coveredByOthers;
    for (const Piece& piece : pieces) {
        if (piece.window != window) {
            coveredByOthers.add(piece.opaque);
            continue;
        }
        Region part = piece.area;
        part.intersect(screen);
        whole.add(part);
        part.subtract(coveredByOthers);
        seen.add(part);
    }
    if (seen.isEmpty()) {
        return Visibility::notVisible;
    }
    return seen == whole ? Visibility::visible : Visibility::partially;
}

}  // namespace

std::vector<Sight> look(const std::vector<Piece>& pieces, const Region& screen) {
    std::vector<Sight> sights;
    for (const Piece& piece : pieces) {
        const bool known = std::any_of(sights.begin(), sights.end(),
                                       [&](const Sight& sight) { return sight.window == piece.window; });
        if (piece.window != 0 && !known) {
            sights.push_back({piece.window, visibilityOf(piece.window, pieces, screen)});
        }
    }
    return sights;
}
