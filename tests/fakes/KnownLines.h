// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Every line that the daemon may log: where it belongs and how loud it is, written down a second time.
 */
#ifndef TESTS_FAKES_KNOWN_LINES_H
#define TESTS_FAKES_KNOWN_LINES_H

#include "fakes/FakeDlog.h"

namespace fakes {

/** Fails the running test when @p line is one of the daemon's and not as it should be. */
void expectKnown(const LogLine& line);

}  // namespace fakes

#endif
