// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The callers that are remembered across a restart of this process.
 *
 * A caller may leave the bus while this process is down. The news of it is lost then, so the next process
 * compares the callers of the file with those on the bus.
 *
 * The file is /run/zel-platform/ipc-callers: a line "bus ID", then "+ NAME PID" for each caller that came and
 * "- NAME" for each that left, in their order. A line that was not written to its end is ignored.
 */
#ifndef SERVICE_API_CALLERS_FILE_H
#define SERVICE_API_CALLERS_FILE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

/** Not thread-safe. A failure to write is logged once; the callers are not remembered then. */
class CallersFile {
public:
    /** Process ids by unique names. */
    using Callers = std::map<std::string, std::uint32_t>;

    CallersFile() = default;
    ~CallersFile();
    CallersFile(const CallersFile&) = delete;
    CallersFile& operator=(const CallersFile&) = delete;

    /** What a process before this one left: the id of its bus, and its callers. Empty when there is none. */
    static std::pair<std::string, Callers> read();

    /** Begins the file anew. */
    void begin(const std::string& busId, const Callers& callers);
    void add(const std::string& name, std::uint32_t pid);
    void remove(const std::string& name);

private:
    void write(const std::string& line);
    void fail(const char* what);

    int m_descriptor = -1;
    bool m_hasFailed = false;
    std::string m_busId;
    Callers m_callers;
    std::size_t m_lines = 0;
};

#endif
