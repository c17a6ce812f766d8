// SPDX-License-Identifier: Apache-2.0
// Takes the place of renameat: the program is killed right before a new value gets its name.
#include <csignal>

extern "C" int __wrap_renameat(int /*oldFolder*/, const char* /*oldName*/, int /*newFolder*/,
                               const char* /*newName*/) {
    return raise(SIGKILL);
}
