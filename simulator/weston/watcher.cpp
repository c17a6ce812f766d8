// SPDX-License-Identifier: Apache-2.0
// zel-window-watcher: binds the notifier and prints what the window manager tells, a line each;
// NotifierClient.h has the words. "bound" comes when the present state of every window has been told. Asks
// for the window on top at each line of its standard input and ends with that.
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "NotifierClient.h"

namespace {

// Prints and asks until standard input ends.
void serve(NotifierClient& notifier) {
    std::array<pollfd, 2> sources{{{STDIN_FILENO, POLLIN, 0}, {notifier.descriptor(), POLLIN, 0}}};
    while (poll(sources.data(), sources.size(), -1) >= 0) {
        if (sources[1].revents != 0) {
            notifier.dispatch();
        }
        if (sources[0].revents != 0) {
            std::array<char, 512> lines{};
            if (read(STDIN_FILENO, lines.data(), lines.size()) <= 0) {
                return;
            }
            notifier.askForTopMost();
            notifier.roundtrip();
        }
    }
}

}  // namespace

int main() {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        NotifierClient notifier([](const std::string& line) { std::puts(line.c_str()); });
        std::puts("bound");
        serve(notifier);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zel-window-watcher: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
