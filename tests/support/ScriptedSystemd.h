// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A system manager on the private bus that answers StartUnit as the test wants.
 */
#ifndef TESTS_SUPPORT_SCRIPTED_SYSTEMD_H
#define TESTS_SUPPORT_SCRIPTED_SYSTEMD_H

#include <dbus/dbus.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/**
 * Owns the name org.freedesktop.systemd1 on a connection of its own, with a thread that serves it. It is
 * written on libdbus because it must also send replies that no well-behaved manager would.
 */
class ScriptedSystemd {
public:
    /** How StartUnit is answered. */
    enum class Answer {
        /** With the path of job 7. */
        JobPath,
        /** With an error that says "Unit is masked.". */
        ErrorWithText,
        /** With an error that says nothing. */
        ErrorWithoutText,
        /** With a reply that holds the number 5. */
        Number,
        /** With a reply that holds nothing. */
        Nothing,
        /** Not at all. */
        Never,
    };

    /** Takes the name on the bus at @p address and returns when it has it. */
    explicit ScriptedSystemd(const std::string& address);
    ~ScriptedSystemd();
    ScriptedSystemd(const ScriptedSystemd&) = delete;
    ScriptedSystemd& operator=(const ScriptedSystemd&) = delete;

    /** Answers so from now on. */
    void answerWith(Answer answer) { m_answer = answer; }

    /** The calls since the last time, each as "OBJECT INTERFACE.METHOD SIGNATURE ARGUMENT ARGUMENT". */
    std::vector<std::string> takeCalls();

private:
    void serve();
    void handle(DBusMessage* call);
    DBusMessage* makeReply(DBusMessage* call) const;

    DBusConnection* m_connection = nullptr;
    std::atomic<Answer> m_answer{Answer::JobPath};
    std::atomic<bool> m_stop{false};
    std::mutex m_mutex;
    std::vector<std::string> m_calls;
    std::thread m_thread;
};

#endif
