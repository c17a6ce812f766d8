// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * On debug and performance sets a tester's key combination terminates the service and launches the companion
 * application at once.
 *
 * Key combinations are recognised by the platform's window-utility library, which is loaded at run time: the
 * daemon lives without it.
 */
#ifndef ZEL_LITE_KEY_LISTENER_H
#define ZEL_LITE_KEY_LISTENER_H

class TCSessionControl;

/** A combination of keys; the numbers are the window-utility library's. */
enum _KeyComb : int {};  // NOLINT(bugprone-reserved-identifier): the library calls it so

/** Used as a whole, there are no instances. Initialize and Unregister belong to the main thread. */
class KeyListener {
public:
    KeyListener() = delete;

    /**
     * Loads the library and, on debug and performance sets, registers the combination.
     *
     * @param sessionControl  asked to terminate the service; must live until Unregister
     */
    static void Initialize(TCSessionControl& sessionControl);

    /** Undoes Initialize. After it the handler never runs. */
    static void Unregister();

    /**
     * What the library calls, on a thread of its own choosing: terminates the service if the policy allows,
     * and launches the companion application.
     *
     * @param combination  the combination that was hit
     * @param text         its name, zero-terminated
     */
    static void m_LaunchLiteApp(_KeyComb combination, void* text);

private:
    /** What the handler acts on. */
    struct TSWrapper {
        TCSessionControl* sessionControl;
    };

    static bool m_isDebug();
    static void m_CallInitializeFinalizeFunctions(const char* symbol);
    static void m_CallHandlerFunction(const char* symbol, _KeyComb combination,
                                      void (*handler)(_KeyComb, void*));

    static constexpr const char* m_LIBRARY_PATH = "/usr/lib/libkq-win-util.so";
    static constexpr const char* m_KEY_COMBINATION_INITIALIZE = "KeyCombination_Initialize";
    static constexpr const char* m_KEY_COMBINATION_FINALIZE = "KeyCombination_Finalize";
    static constexpr const char* m_KEY_COMBINATION_ADD_HANDLER = "KeyCombination_Add_Handler";
    static constexpr const char* m_KEY_COMBINATION_REMOVE_HANDLER = "KeyCombination_Remove_Handler";

    /** The library, null when it is not loaded. */
    static void* m_handle;
    static TSWrapper* m_Wrapper;
};

#endif
