// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The log of this library: tag ZEL_API.
 */
#ifndef SERVICE_API_LOG_H
#define SERVICE_API_LOG_H

#include <string>

/** Writes one error line. Callable from any thread. */
void logError(const std::string& text);

/** Writes one line about the normal course of events. Callable from any thread. */
void logInfo(const std::string& text);

#endif
