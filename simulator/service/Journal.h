// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The stand-in service's lines in the journal, under the identifier "zel-daemon".
 */
#ifndef SIMULATOR_SERVICE_JOURNAL_H
#define SIMULATOR_SERVICE_JOURNAL_H

#include <string>

/** Writes one line of normal importance. Without a journal the line is lost. */
void journalInfo(const std::string& line);

/** Writes one line that tells of a mistake. */
void journalError(const std::string& line);

#endif
