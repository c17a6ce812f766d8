// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Short words for what tests do with files.
 */
#ifndef TESTS_SUPPORT_FILES_H
#define TESTS_SUPPORT_FILES_H

#include <string>

/** The whole content of a file; empty when it cannot be read. */
std::string readFile(const std::string& path);

/** Creates or replaces a file. */
void writeFile(const std::string& path, const std::string& content);

/** Whether the path itself exists, be it a dangling link. */
bool exists(const std::string& path);

/** Waits up to 10 s for the file to have a content that ends in a newline, and gives it. */
std::string waitForLine(const std::string& path);

#endif
