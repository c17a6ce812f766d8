// SPDX-License-Identifier: Apache-2.0
// zel-window: an application with one window, told on standard input what to do.
//
//   zel-window WIDTH HEIGHT opaque|translucent [X Y]
//
// Says "done" after each line it has obeyed, and what was wrong with any other:
//   look WIDTH HEIGHT opaque|translucent    place X Y    raise    minimise    hide    show
//   hint 1|2    ready 0|1|2    async 0|1|2    call METHOD
// The last calls an IPC method of zel-lite, over a bus connection that lasts as long as the application.
// Ends with its standard input, or when the window manager has gone.
#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "WindowClient.h"

namespace {

// More than any screen has, and few enough for the bytes of a window to be counted in an int.
constexpr int kMostPixels = 10'000;

WindowLook readLook(std::istream& words) {
    WindowLook look{};
    std::string kind;
    words >> look.width >> look.height >> kind;
    const auto fits = [](int pixels) { return pixels > 0 && pixels <= kMostPixels; };
    if (!words || !fits(look.width) || !fits(look.height) || (kind != "opaque" && kind != "translucent")) {
        throw std::invalid_argument("a look is: WIDTH HEIGHT opaque|translucent");
    }
    look.opaque = kind == "opaque";
    return look;
}

int readNumber(std::istream& words) {
    int number = 0;
    if (!(words >> number)) {
        throw std::invalid_argument("a number is missing");
    }
    return number;
}

WindowPlace readPlace(std::istream& words) {
    const int x = readNumber(words);
    return {x, readNumber(words)};
}

// What comes back is not looked at: whoever told the application to call sees what the daemon does.
void callDaemon(int method) {
    static const std::unique_ptr<sdbus::IProxy> daemon =
        sdbus::createProxy("com.brenlow.ZELLite", "/com/brenlow/ZELLite/SignalObject");
    std::vector<std::uint8_t> reply;
    daemon->callMethod("Call")
        .onInterface("com.brenlow.ZELLite.SignalIFace")
        .withArguments(std::string("com.brenlow.ISessionControl"), std::int32_t{method},
                       std::vector<std::uint8_t>())
        .storeResultsTo(reply);
}

void obey(ClientWindow& window, const std::string& line) {
    static const std::map<std::string, std::function<void(ClientWindow&, std::istream&)>> kCommands = {
        {"look", [](ClientWindow& w, std::istream& words) { w.look(readLook(words)); }},
        {"place", [](ClientWindow& w, std::istream& words) { w.place(readPlace(words)); }},
        {"raise", [](ClientWindow& w, std::istream& /*words*/) { w.raise(); }},
        {"minimise", [](ClientWindow& w, std::istream& /*words*/) { w.minimise(); }},
        {"hide", [](ClientWindow& w, std::istream& /*words*/) { w.hide(); }},
        {"show", [](ClientWindow& w, std::istream& /*words*/) { w.show(); }},
        {"hint", [](ClientWindow& w, std::istream& words) { w.hint(readNumber(words)); }},
        {"ready", [](ClientWindow& w, std::istream& words) { w.announceReady(readNumber(words)); }},
        {"async", [](ClientWindow& w, std::istream& words) { w.announceAsync(readNumber(words)); }},
        {"call", [](ClientWindow& /*w*/, std::istream& words) { callDaemon(readNumber(words)); }},
    };
    std::istringstream words(line);
    std::string command;
    words >> command;
    try {
        const auto found = kCommands.find(command);
        if (found == kCommands.end()) {
            throw std::invalid_argument("no such command: " + line);
        }
        found->second(window, words);
        std::puts("done");
    } catch (const std::invalid_argument& error) {
        std::puts(error.what());
    }
}

// Obeys line after line and answers the window manager meanwhile, until standard input ends.
void serve(WindowClient& client, ClientWindow& window) {
    std::array<pollfd, 2> sources{{{STDIN_FILENO, POLLIN, 0}, {client.descriptor(), POLLIN, 0}}};
    std::string text;
    while (poll(sources.data(), sources.size(), -1) >= 0) {
        if (sources[1].revents != 0) {
            client.dispatch();
        }
        if (sources[0].revents == 0) {
            continue;
        }
        std::array<char, 512> chunk{};
        const ssize_t size = read(STDIN_FILENO, chunk.data(), chunk.size());
        if (size <= 0) {
            return;
        }
        text.append(chunk.data(), static_cast<std::size_t>(size));
        for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
            obey(window, text.substr(0, end));
            text.erase(0, end + 1);
        }
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        std::stringstream words;
        for (int i = 1; i < argc; ++i) {
            words << argv[i] << ' ';
        }
        const WindowLook look = readLook(words);
        const auto place = (words >> std::ws).eof() ? std::nullopt : std::optional(readPlace(words));
        WindowClient client;
        ClientWindow window(client, look, place);
        serve(client, window);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zel-window: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
