// SPDX-License-Identifier: Apache-2.0
#include "KeyListener.h"

#include <dlfcn.h>

#include "Diagnostics.h"
#include "SessionControl.h"
#include "ZelApiLite.h"

// The function and the line that the texts of this file begin with: the same as those before the text.
#define ZEL_HERE static_cast<const char*>(__func__), __LINE__

using ZelApiLite::LiteUtility;

namespace {

/** Terminates the service; which keys it is, is the library's business. */
constexpr _KeyComb kLaunchLiteApp{114};

using TInitializeFinalize = void (*)();
using THandler = void (*)(_KeyComb, void*);
using TAddRemove = void (*)(_KeyComb, THandler);

}  // namespace

void* KeyListener::m_handle = nullptr;
KeyListener::TSWrapper* KeyListener::m_Wrapper = nullptr;

void KeyListener::Initialize(TCSessionControl& sessionControl) {
    m_handle = dlopen(m_LIBRARY_PATH, RTLD_NOW);
    if (m_handle == nullptr) {
        ZEL_LOG_ERROR("[%s][%d] Couldn't open the library", ZEL_HERE);
        return;
    }
    m_Wrapper = new TSWrapper{&sessionControl};
    m_CallInitializeFinalizeFunctions(m_KEY_COMBINATION_INITIALIZE);
    if (m_isDebug()) {
        m_CallHandlerFunction(m_KEY_COMBINATION_ADD_HANDLER, kLaunchLiteApp, m_LaunchLiteApp);
    }
}

// A library that never opened has nothing to undo, and a null handle must not reach dlclose.
void KeyListener::Unregister() {
    if (m_handle == nullptr) {
        return;
    }
    if (m_isDebug()) {
        m_CallHandlerFunction(m_KEY_COMBINATION_REMOVE_HANDLER, kLaunchLiteApp, m_LaunchLiteApp);
    }
    m_CallInitializeFinalizeFunctions(m_KEY_COMBINATION_FINALIZE);
    if (dlclose(m_handle) != 0) {
        ZEL_LOG_ERROR("[%s][%d] There was error during closing dynamic library: %s", ZEL_HERE, dlerror());
    }
    m_handle = nullptr;
    // The pointer keeps its value: no handler is left that could follow it.
    delete m_Wrapper;
}

void KeyListener::m_LaunchLiteApp(_KeyComb combination, void* text) {
    ZEL_LOG_DEBUG("[%s][%d] %s hit sucessfully! %d", ZEL_HERE, static_cast<const char*>(text), combination);
    if (m_Wrapper == nullptr) {
        ZEL_LOG_ERROR("[%s][%d] m_Wrapper is nullptr", ZEL_HERE);
        return;
    }
    m_Wrapper->sessionControl->TryTerminateZelWithAppLaunch(true);
}

bool KeyListener::m_isDebug() {
    return LiteUtility::IsDebug() || LiteUtility::IsPerf();
}

// Called in every case, so a library without this entry ends the daemon: none without it is supported.
void KeyListener::m_CallInitializeFinalizeFunctions(const char* symbol) {
    const auto function = reinterpret_cast<TInitializeFinalize>(dlsym(m_handle, symbol));
    if (const char* const error = dlerror(); error != nullptr) {
        ZEL_LOG_ERROR("[%s][%d] There was error during getting %s function: %s ", ZEL_HERE, symbol, error);
    }
    function();
}

void KeyListener::m_CallHandlerFunction(const char* symbol, _KeyComb combination,
                                        void (*handler)(_KeyComb, void*)) {
    const auto function = reinterpret_cast<TAddRemove>(dlsym(m_handle, symbol));
    if (const char* const error = dlerror(); error != nullptr) {
        ZEL_LOG_ERROR("[%s][%d] There was error during getting %s function: %s ", ZEL_HERE, symbol, error);
        return;
    }
    function(combination, handler);
}
