// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A set of pixels of the screen, as pixman keeps it.
 */
#ifndef SIMULATOR_WESTON_REGION_H
#define SIMULATOR_WESTON_REGION_H

#include <pixman.h>

#include <utility>

/** Owns a pixman region; an empty one unless made otherwise. */
class Region {
public:
    Region() { pixman_region32_init(&m_region); }
    /** A rectangle. */
    Region(int x, int y, unsigned int width, unsigned int height) {
        pixman_region32_init_rect(&m_region, x, y, width, height);
    }
    explicit Region(const pixman_region32_t& region) : Region() { pixman_region32_copy(&m_region, &region); }
    Region(const Region& other) : Region(other.m_region) {}
    Region(Region&& other) noexcept : Region() { std::swap(m_region, other.m_region); }
    Region& operator=(Region other) noexcept {
        std::swap(m_region, other.m_region);
        return *this;
    }
    ~Region() { pixman_region32_fini(&m_region); }

    void add(const Region& other) { pixman_region32_union(&m_region, &m_region, &other.m_region); }
    void subtract(const Region& other) { pixman_region32_subtract(&m_region, &m_region, &other.m_region); }
    void intersect(const Region& other) { pixman_region32_intersect(&m_region, &m_region, &other.m_region); }

    bool isEmpty() const { return pixman_region32_not_empty(&m_region) == 0; }
    bool operator==(const Region& other) const {
        return pixman_region32_equal(&m_region, &other.m_region) != 0;
    }

private:
    // Zero until pixman fills it: its functions take what they change by a mutable pointer.
    pixman_region32_t m_region{};
};

#endif
