// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Watches the method calls that this process makes and waits for, at the door of libsystemd.
 */
#ifndef TESTS_SUPPORT_BUS_CALL_SPY_H
#define TESTS_SUPPORT_BUS_CALL_SPY_H

#include <cstdint>
#include <functional>
#include <string>

namespace BusCallSpy {

/** A call about to be made. */
struct Call {
    std::string destination;
    std::string member;
    /** The limit that the caller set; a test may change it. */
    std::uint64_t microseconds;
};

/** From now on runs @p watch before each call, on the calling thread; an empty one ends that. */
void set(std::function<void(Call&)> watch);

}  // namespace BusCallSpy

#endif
