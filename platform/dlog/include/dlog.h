/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Writing to the log of the platform.
 *
 * A message has a *priority*, a *tag* that says which component speaks, and a text. Where it ends up is the
 * platform's business: on the set in the log device, on Linux in the journal or on stderr.
 *
 * On the set this header also brings short macros for calling it and a default tag; here there are none, and
 * who wants to compile for both must use only what is declared below.
 */
#ifndef DLOG_H
#define DLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/** Which of the platform's logs a message is for. Linux has one log and writes everything there. */
typedef enum {
    /** The log of ordinary programs. */
    LOG_ID_MAIN = 0
} log_id_t;

/** How much a message matters. */
typedef enum {
    /** Of use to who looks for a fault; journal priority 7. */
    DLOG_DEBUG = 3,
    /** The normal course of events; journal priority 6. */
    DLOG_INFO = 4,
    /** Unexpected, and coped with; journal priority 4. */
    DLOG_WARN = 5,
    /** Something failed; journal priority 3. */
    DLOG_ERROR = 6,
    /** The process can't go on; journal priority 2. The set may abort the process after it, Linux doesn't. */
    DLOG_FATAL = 7
} log_priority;

/**
 * Writes one message to the log.
 *
 * One message is one line: a control character in tag or text appears as `\x` and two hexadecimal digits (a
 * line feed as `\x0a`); bytes from 0x80 on pass. A line is cut at 4076 bytes, never inside an escape or a
 * UTF-8 character. Callable from any thread, also between vfork and exec. errno stays as it was, and `%m` in
 * @p fmt means the errno that the caller had. The contract of declaration and numbers is the set's.
 *
 * @param log_id  the log, LOG_ID_MAIN
 * @param prio    a log_priority
 * @param tag     who speaks; zero-terminated, not null
 * @param fmt     printf format of the text; zero-terminated, not null
 * @return the number of bytes written, or -1, with nothing written, when an argument is none of the above,
 *         the text can't be formatted or nobody took it
 */
// NOLINTNEXTLINE(bugprone-reserved-identifier): the set calls it so
int __dlog_print(log_id_t log_id, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
