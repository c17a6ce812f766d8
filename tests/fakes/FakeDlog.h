// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A platform log that remembers its lines.
 */
#ifndef TESTS_FAKES_FAKE_DLOG_H
#define TESTS_FAKES_FAKE_DLOG_H

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace fakes {

/** One call of the platform log. */
struct LogLine {
    /** Log buffer. */
    int buffer;
    /** Priority: 3 debug, 4 info, 6 error. */
    int priority;
    std::string tag;
    /** The format as passed. */
    std::string format;
    /** The formatted line. */
    std::string text;
    /** Who logged it. */
    std::thread::id thread;

    /** The line behind "FILE: FUNCTION(LINE) > ". */
    std::string message() const;
    /** FUNCTION of that prefix. */
    std::string function() const;
    /** FILE of that prefix. */
    std::string file() const;
    /** LINE of that prefix. */
    int line() const;
};

/**
 * The lines since the last clear. Callable from any thread, and about the calling thread unless said
 * otherwise.
 *
 * Every line of the daemon's own files is held against the table in KnownLines.h: one that is not in it, or
 * that carries another function or priority than it should, fails the test in which it was logged.
 */
class FakeDlog {
public:
    static void clear();
    static std::vector<LogLine> lines();

    /** The messages of all other threads, whatever their priority, as "PRIORITY MESSAGE". */
    static std::vector<std::string> messagesOfOthers();

    /** Runs for every line of other threads than the one that sets it, after it was recorded; null for none.
     */
    static void onLineOfOthers(std::function<void(const std::string& message)> hook);

    /** The messages at @p priority, without their prefix. */
    static std::vector<std::string> messages(int priority);

    /** How many lines at @p priority have this message. */
    static std::size_t count(int priority, const std::string& message);

    /**
     * From now on every line is the action "log FUNCTION: MESSAGE" besides, until the next
     * clear.
     */
    static void recordActions();

    /** Where every line is appended besides, so that those of a child process are seen too. */
    static constexpr const char* kFile = "/tmp/fake-dlog";
};

}  // namespace fakes

#endif
