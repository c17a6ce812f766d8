// SPDX-License-Identifier: Apache-2.0
#include "TestCgroups.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "support/Wait.h"

namespace {

namespace fs = std::filesystem;

// The folders of the tests, once they are made.
std::string g_unified;  // NOLINT: one for the program
std::string g_named;    // NOLINT: one for the program

std::system_error lastError(const std::string& what) {
    return {errno, std::generic_category(), what};
}

int mountCgroups(const std::string& where, const char* type, const char* options) {
    fs::create_directories(where);
    return mount("none", where.c_str(), type, MS_NOSUID | MS_NODEV | MS_NOEXEC, options);
}

// Makes a folder that no other program has in the hierarchy mounted here.
std::string makeFolder(const std::string& where) {
    std::string folder = where + "/aul-test-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        throw lastError("no cgroup can be made below the one that this program was started in (" + where +
                        ")");
    }
    return folder;
}

void makeFolders() {
    constexpr const char* kNamed = "none,name=systemd";
    // Only outside a cgroup namespace can the hierarchy be made where systemd does without; it lives while it
    // is mounted. Where that's refused it may be there all the same.
    mountCgroups("/tmp/aul-test/kept", "cgroup", kNamed);
    if (unshare(CLONE_NEWCGROUP) != 0) {
        throw lastError("no cgroup namespace");
    }
    if (mountCgroups("/tmp/aul-test/unified", "cgroup2", nullptr) != 0) {
        throw lastError("the unified hierarchy of cgroups can't be mounted");
    }
    g_unified = makeFolder("/tmp/aul-test/unified");
    if (mountCgroups("/tmp/aul-test/named", "cgroup", kNamed) != 0) {
        throw lastError("the hierarchy name=systemd can't be mounted");
    }
    g_named = makeFolder("/tmp/aul-test/named");
}

void goTo(const fs::path& folder) {
    if (chdir(folder.c_str()) != 0) {
        throw lastError("can't go to " + folder.string());
    }
}

void killAllIn(const fs::path& folder) {
    std::ifstream processes(folder / "cgroup.procs");
    for (int pid = 0; processes >> pid;) {
        kill(pid, SIGKILL);
    }
}

// Goes from folder to folder, because what is deep down may have a longer path than can be named.
void removeFolder(const fs::path& folder) {
    goTo(folder);
    for (const fs::directory_entry& entry : fs::directory_iterator(".")) {
        if (entry.is_directory()) {
            removeFolder(entry.path());
        }
    }
    goTo("..");
    if (!becomesTrue([&folder] {
            killAllIn(folder);
            return rmdir(folder.c_str()) == 0;
        })) {
        throw lastError("the cgroup " + folder.string() + " can't be removed");
    }
}

void removeFolders() {
    for (const std::string* const folder : {&g_unified, &g_named}) {
        if (!folder->empty()) {
            removeFolder(*folder);
        }
    }
}

int runInProcess(const std::function<int()>& tests) {
    const pid_t process = fork();
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        std::exit(tests());
    }
    int status = 0;
    if (process < 0 || waitpid(process, &status, 0) != process) {
        throw lastError("no process for the tests");
    }
    if (WIFSIGNALED(status)) {
        std::cerr << "FAILED: the tests ended with signal " << WTERMSIG(status) << std::endl;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
}

// Runs a step; what goes wrong is said and makes the result a failure.
int said(const std::function<int()>& step) {
    try {
        return step();
    } catch (const std::exception& error) {
        std::cerr << "FAILED: " << error.what() << std::endl;
        return EXIT_FAILURE;
    }
}

}  // namespace

int runWithCgroups(const std::function<int()>& tests) {
    const int result = said([&tests] {
        makeFolders();
        return runInProcess(tests);
    });
    const int removal = said([] {
        removeFolders();
        return EXIT_SUCCESS;
    });
    return result != EXIT_SUCCESS ? result : removal;
}

const std::string& unifiedFolder() {
    return g_unified;
}

const std::string& namedFolder() {
    return g_named;
}

Process::Process() : m_id(fork()) {
    if (m_id == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) {
            pause();
        }
    }
    if (m_id < 0) {
        throw lastError("no process");
    }
}

Process::~Process() {
    endForGood();
}

void Process::enter(const std::string& folder) const {
    for (const fs::path& component : fs::path(folder)) {
        mkdir(component.c_str(), 0755);
        goTo(component);
    }
    std::ofstream processes("cgroup.procs");
    if (!(processes << m_id << std::flush)) {
        throw lastError("the process can't enter " + folder);
    }
}

void Process::end() const {
    kill(m_id, SIGKILL);
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(m_id), &info, WEXITED | WNOWAIT) != 0) {
        throw lastError("the process does not end");
    }
}

void Process::endForGood() {
    if (m_id > 0) {
        kill(m_id, SIGKILL);
        waitpid(std::exchange(m_id, -1), nullptr, 0);
    }
}
