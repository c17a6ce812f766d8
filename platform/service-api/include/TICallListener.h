// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What a process implements to be called over IPC.
 */
#ifndef TI_CALL_LISTENER_H
#define TI_CALL_LISTENER_H

#include <string>

#include "TCMessageBuffer.h"

/** Serves one IPC interface. */
class TICallListener {
public:
    virtual ~TICallListener() = default;

    /**
     * Serves one call. Calls come one at a time, on a thread of the library.
     *
     * @param method   number of the method, as the caller sent it
     * @param request  content of the call and the caller's connection name
     * @param reply    empty; what is appended goes back to the caller
     * @return false when there is no such method; the caller then gets an error and @p reply is dropped
     */
    virtual bool OnCallReceived(int method, TCMessageBuffer& request, TCMessageBuffer& reply) = 0;

    /** Name of the interface that this listener serves; asked for once, by StartNativeAPI. */
    virtual std::string GetInterfaceName() = 0;
};

#endif
