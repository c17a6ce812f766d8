// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Assertions of the service-API library.
 */
#ifndef TC_API_ASSERT_H
#define TC_API_ASSERT_H

/**
 * Reports that an assertion did not hold. On Linux it writes one error line to the log and returns; callers
 * must be correct whether it returns or not. Callable from any thread.
 *
 * @param expression  text of the expression that was false, zero-terminated, not null
 * @param file        full path of the source file, zero-terminated, not null
 * @param line        source line
 * @param message     further explanation, zero-terminated, or null
 */
// NOLINTNEXTLINE(bugprone-reserved-identifier): the set calls it so
void _TCApiAssert(const char* expression, const char* file, unsigned long line, const char* message);

#endif
