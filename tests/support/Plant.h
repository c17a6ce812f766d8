// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * An attacker who plants something at a path between the daemon's look at it and its opening. Link with WRAP
 * open.
 */
#ifndef TESTS_SUPPORT_PLANT_H
#define TESTS_SUPPORT_PLANT_H

#include <functional>
#include <string>

/** Runs @p attack once, when @p path is opened next, before it is. */
void plantAtOpen(const std::string& path, std::function<void()> attack);

/** Runs @p attack before each opening of @p path, until stopPlanting. */
void plantAtEveryOpen(const std::string& path, std::function<void()> attack);

/** Makes nothing that begins with @p path be created: open fails with @p error, until stopPlanting. */
void failCreating(const std::string& path, int error);

/** Ends the attacks and the failures. */
void stopPlanting();

/** Whether the planned attack has taken place. */
bool wasPlanted();

#endif
