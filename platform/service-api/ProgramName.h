// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Naming the program that a process runs.
 */
#ifndef SERVICE_API_PROGRAM_NAME_H
#define SERVICE_API_PROGRAM_NAME_H

#include <cstdint>
#include <string>

/**
 * The base name of the process's executable (also when the file has been deleted since), else its command
 * name, else empty. Callable from any thread.
 *
 * @param pid  process id; 0 stands for none
 */
std::string programName(std::uint32_t pid);

#endif
