// SPDX-License-Identifier: Apache-2.0
// The window-utility library of the box, as far as key combinations go. Its FIFO is root's: who writes the
// number of a combination to it, a line each, has pressed those keys.
#include <sys/stat.h>

#include <exception>

#include "Keys.h"

namespace {

constexpr const char* kFolder = "/run/zel-platform";
constexpr const char* kFifo = "/run/zel-platform/key-combination";

Keys& keys() {
    static Keys instance;
    return instance;
}

// Runs what may throw for want of memory or threads; the caller can't be thrown at.
template <typename Function>
int guarded(Function function) {
    try {
        return function(keys()) ? 0 : -1;
    } catch (const std::exception&) {
        return -1;
    }
}

}  // namespace

extern "C" {

/** Begins to notice keys. @return 0; -1 when it can't */
[[gnu::visibility("default")]] int KeyCombination_Initialize();
/** Stops; once it has returned no handler runs. Not for a handler. @return 0; -1 when there is nothing to
 * stop */
[[gnu::visibility("default")]] int KeyCombination_Finalize();
/** Has @p handler called on a thread of the library. @return 0; -1 when it is there already */
[[gnu::visibility("default")]] int KeyCombination_Add_Handler(int combination, Keys::Handler handler);
/** Lets it go; once it has returned it does not run. @return 0; -1 when it is not there */
[[gnu::visibility("default")]] int KeyCombination_Remove_Handler(int combination, Keys::Handler handler);

}  // extern "C"

int KeyCombination_Initialize() {
    mkdir(kFolder, 0755);
    return guarded([](Keys& instance) { return instance.start(kFifo); });
}

int KeyCombination_Finalize() {
    return guarded([](Keys& instance) { return instance.stop(); });
}

int KeyCombination_Add_Handler(int combination, Keys::Handler handler) {
    return guarded([=](Keys& instance) { return instance.add(combination, handler); });
}

int KeyCombination_Remove_Handler(int combination, Keys::Handler handler) {
    return guarded([=](Keys& instance) { return instance.remove(combination, handler); });
}
