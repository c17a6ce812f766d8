// SPDX-License-Identifier: Apache-2.0
// A window-utility library that tells the program which loaded it what it was called for. Built several
// times, each time without another entry (KEY_LIBRARY_WITHOUT_...).
#include "fakes/KeyLibrary.h"

extern "C" {

#ifdef KEY_LIBRARY_UNRESOLVED
void nobodyHasThis();
#endif

#ifndef KEY_LIBRARY_WITHOUT_INITIALIZE
int KeyCombination_Initialize() {
#ifdef KEY_LIBRARY_UNRESOLVED
    nobodyHasThis();
#endif
    keyLibraryCalled("Initialize");
    return -1;
}
#endif

#ifndef KEY_LIBRARY_WITHOUT_FINALIZE
int KeyCombination_Finalize() {
    keyLibraryCalled("Finalize");
    return -1;
}
#endif

#ifndef KEY_LIBRARY_WITHOUT_HANDLERS
int KeyCombination_Add_Handler(int combination, KeyHandler handler) {
    keyLibraryCalledWithHandler("Add_Handler", combination, handler);
    return -1;
}

int KeyCombination_Remove_Handler(int combination, KeyHandler handler) {
    keyLibraryCalledWithHandler("Remove_Handler", combination, handler);
    return -1;
}
#endif

}  // extern "C"
