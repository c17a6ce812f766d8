// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the test's window-utility library calls in the program that loaded it.
 */
#ifndef TESTS_FAKES_KEY_LIBRARY_H
#define TESTS_FAKES_KEY_LIBRARY_H

extern "C" {

using KeyHandler = void (*)(int combination, void* text);

/** An entry without arguments was called. */
void keyLibraryCalled(const char* entry);
/** An entry that takes a handler was called. */
void keyLibraryCalledWithHandler(const char* entry, int combination, KeyHandler handler);

}  // extern "C"

#endif
