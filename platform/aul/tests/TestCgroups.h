// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Real cgroups for a test program: folders below the cgroup that the program was started in, and processes in
 * them.
 */
#ifndef AUL_TESTS_TEST_CGROUPS_H
#define AUL_TESTS_TEST_CGROUPS_H

#include <functional>
#include <string>

/**
 * Runs @p tests in a process of its own with a folder in each of the two hierarchies, and removes the folders
 * with everything in them when it has ended, however that came about. The cgroup that the program was started
 * in is the root of what @p tests sees, so that its name makes no difference.
 *
 * @return what @p tests returned; not 0, with the reason on stderr, when the machine gives no cgroups, the
 * process did not end in the ordinary way or something could not be removed
 */
int runWithCgroups(const std::function<int()>& tests);

/** The folder of the tests in the unified hierarchy. */
const std::string& unifiedFolder();

/** The folder of the tests in the hierarchy called name=systemd, which hybrid machines have beside it. */
const std::string& namedFolder();

/** A process that does nothing until it ends with its owner. It begins in the cgroups of the test. */
class Process {
public:
    Process();
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /** Its process id. */
    int id() const { return m_id; }

    /** Moves it to the cgroup at @p folder, an absolute path, and makes that first where it is missing. The
     * caller's working directory is there afterwards, since the path may be longer than can be named. */
    void enter(const std::string& folder) const;

    /** Kills it and returns when it has ended; it stays as one that nobody has waited for. */
    void end() const;

    /** Kills it and waits for it, so that nothing is left of it. */
    void endForGood();

private:
    int m_id;
};

#endif
