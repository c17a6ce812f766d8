// SPDX-License-Identifier: Apache-2.0
// Logs what it is told to, as a fresh process whose stderr and environment the test has chosen.
//
//   dlog-speaker PRIORITY TAG TEXT          logs one message and prints the result
//   dlog-speaker --vfork TEXT               logs "child TEXT" in a child of vfork, then "parent TEXT" itself
//   dlog-speaker --fork TEXT                logs in a child of fork
//   dlog-speaker --moved TEXT               sends stderr to stdout, then logs
#include <dlog.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

int speakAroundVfork(const char* text) {
    // That a child of vfork may log is what is tried here.
    const pid_t child = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (child == 0) {
        __dlog_print(LOG_ID_MAIN, DLOG_INFO, "VFORK", "child %s", text);  // NOLINT(clang-analyzer-unix.Vfork)
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "VFORK", "parent %s", text);
    return 0;
}

int speakInFork(const char* text) {
    const pid_t child = fork();
    if (child == 0) {
        __dlog_print(LOG_ID_MAIN, DLOG_INFO, "FORK", "%s", text);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    return 0;
}

int speakAfterMoving(const char* text) {
    dup2(STDOUT_FILENO, STDERR_FILENO);
    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "MOVED", "%s", text);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view mode = argc > 1 ? argv[1] : "";
    if (argc == 3 && mode == "--vfork") {
        return speakAroundVfork(argv[2]);
    }
    if (argc == 3 && mode == "--fork") {
        return speakInFork(argv[2]);
    }
    if (argc == 3 && mode == "--moved") {
        return speakAfterMoving(argv[2]);
    }
    if (argc != 4) {
        return 2;
    }
    std::printf("%d\n", __dlog_print(LOG_ID_MAIN, std::atoi(argv[1]), argv[2], "%s", argv[3]));
    return 0;
}
