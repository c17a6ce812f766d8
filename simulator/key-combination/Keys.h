// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Key combinations of the box's remote control: lines of a FIFO, each a number that somebody may handle.
 */
#ifndef SIMULATOR_KEY_COMBINATION_KEYS_H
#define SIMULATOR_KEY_COMBINATION_KEYS_H

#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Descriptor.h"

/**
 * Reads the FIFO on a thread of its own and calls handlers there, one at a time.
 *
 * start() and stop() are for one thread and come in turns; handlers may be added and removed at any time from
 * any thread, also by a handler. Whoever adds or removes one waits until none runs, unless a handler does so
 * itself.
 */
class Keys {
public:
    /** Gets the combination and its name, zero-terminated. */
    using Handler = void (*)(int combination, void* text);

    Keys() = default;
    /** Stops. */
    ~Keys();
    Keys(const Keys&) = delete;
    Keys& operator=(const Keys&) = delete;

    /** Opens the FIFO and begins to read. @return false when it can't, or reads already */
    bool start(const char* fifo);

    /**
     * Stops reading and forgets all handlers; once it has returned none runs.
     *
     * @return false when it does not read, or a handler calls it, which would wait for itself
     */
    bool stop();

    /** Has a handler called for a combination. @return false when it is there already */
    bool add(int combination, Handler handler);

    /** Lets a handler go; once it has returned that handler does not run. @return false when it is not there
     */
    bool remove(int combination, Handler handler);

private:
    using Entry = std::pair<int, Handler>;

    void run();
    void readLines();
    void takeLine(std::string_view line);
    void press(int combination);
    bool has(const Entry& entry) const;

    Descriptor m_fifo;
    /** An event of it ends the thread. */
    Descriptor m_end;
    std::thread m_thread;

    // Of the thread.
    std::string m_line;

    /** Held while a handler runs; recursive because that may add and remove. */
    std::recursive_mutex m_mutex;
    std::vector<Entry> m_handlers;
};

#endif
