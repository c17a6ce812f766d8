// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The daemon's three diagnostic channels, each in its one form:
 *
 *  - log lines: `ZEL_LOG_DEBUG|INFO|ERROR("text %s", argument)` writes "FILE: FUNCTION(LINE) > text ..." to
 * dlog. Error priority is not only for failures: what an operator must see in a production log is an error
 * line, the supervision's progress included. A helper that logs on behalf of another function names it:
 *    `ZEL_LOG_FROM("Notify", DLOG_ERROR, "text")`;
 *  - boot markers: `BootMarker("text %d", argument)` hands a text to the kernel's boot trace;
 *  - assertions: `ZEL_ASSERT_FAILED("expression")` reports and goes on: the code after it always runs.
 *
 * Everything here is stateless and callable from any thread.
 */
#ifndef ZEL_LITE_DIAGNOSTICS_H
#define ZEL_LITE_DIAGNOSTICS_H

#include <dlog.h>
#include <sys/prctl.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include "TCApiAssert.h"

/** The part of @p path behind its last '/'. */
constexpr const char* BaseName(const char* path) {
    const char* name = path;
    for (; *path != '\0'; ++path) {
        if (*path == '/') {
            name = path + 1;
        }
    }
    return name;
}

#define ZEL_LOG_DEBUG(...) ZEL_LOG_FROM(static_cast<const char*>(__func__), DLOG_DEBUG, __VA_ARGS__)
#define ZEL_LOG_INFO(...) ZEL_LOG_FROM(static_cast<const char*>(__func__), DLOG_INFO, __VA_ARGS__)
#define ZEL_LOG_ERROR(...) ZEL_LOG_FROM(static_cast<const char*>(__func__), DLOG_ERROR, __VA_ARGS__)

/** Logs in the name of @p function; the text and up to eight arguments follow. */
#define ZEL_LOG_FROM(function, priority, ...)                                                             \
    ZEL_LOG_PICK_(__VA_ARGS__, ZEL_LOG_WITH_, ZEL_LOG_WITH_, ZEL_LOG_WITH_, ZEL_LOG_WITH_, ZEL_LOG_WITH_, \
                  ZEL_LOG_WITH_, ZEL_LOG_WITH_, ZEL_LOG_WITH_, ZEL_LOG_PLAIN_, ~)                         \
    (function, priority, __VA_ARGS__)

// A text without arguments and one with them need different calls, because C++17 has no way to drop the comma
// before an empty argument list.
#define ZEL_LOG_PICK_(a0, a1, a2, a3, a4, a5, a6, a7, a8, name, ...) name
#define ZEL_LOG_PLAIN_(function, priority, text)                                                        \
    __dlog_print(LOG_ID_MAIN, priority, "ZEL_LITE", "%s: %s(%d) > " text, BaseName(__FILE__), function, \
                 __LINE__)
#define ZEL_LOG_WITH_(function, priority, text, ...)                                                    \
    __dlog_print(LOG_ID_MAIN, priority, "ZEL_LITE", "%s: %s(%d) > " text, BaseName(__FILE__), function, \
                 __LINE__, __VA_ARGS__)

/** Hands a formatted text, without its terminating zero, to the boot trace; kernels without one refuse it
 * unheard. */
__attribute__((format(printf, 1, 2))) inline void BootMarker(const char* format, ...) {
    constexpr int kBootProgress = 666;
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list measured;
    va_copy(measured, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length >= 0) {
        const std::size_t size = static_cast<std::size_t>(length) + 1;
        const auto text = std::make_unique<char[]>(size);
        std::vsnprintf(text.get(), size, format, arguments);
        prctl(kBootProgress, text.get(), std::strlen(text.get()));
    }
    va_end(arguments);
}

/** Prints the line that goes with an assertion; flushed, because nothing ends the line. */
inline void PrintAssertion(const char* function, int line) {
    std::printf("ASSERT!!! - function %s, line %d", function, line);
    std::fflush(stdout);
}

/** Reports an assertion that did not hold, then prints its line. */
inline void ReportAssertion(const char* expression, const char* path, const char* function, int line) {
    _TCApiAssert(expression, path, static_cast<unsigned long>(line), nullptr);
    PrintAssertion(function, line);
}

/** Reports that @p expression, a text, did not hold here. */
#define ZEL_ASSERT_FAILED(expression) \
    ReportAssertion(expression, __FILE__, static_cast<const char*>(__func__), __LINE__)

#endif
