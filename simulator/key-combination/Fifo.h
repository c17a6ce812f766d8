// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The FIFO through which the box is told which keys were pressed.
 */
#ifndef SIMULATOR_KEY_COMBINATION_FIFO_H
#define SIMULATOR_KEY_COMBINATION_FIFO_H

#include "Descriptor.h"

/**
 * Makes the FIFO unless it is there, and opens it for good: without a writer it stays open and has nothing to
 * read. What is there and is no FIFO of this user's with the mode 0600, a link included, is refused and
 * logged, and so is what can't be made.
 *
 * @return a descriptor that never blocks; none on failure
 */
Descriptor openFifo(const char* path);

#endif
