// SPDX-License-Identifier: Apache-2.0
// The window manager in a headless Weston, seen by real clients.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tizen-zel-notifier-client-protocol.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xdg-shell-client-protocol.h>
#include <zel-window-control-client-protocol.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "NotifierClient.h"
#include "WindowClient.h"
#include "support/Wait.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kRuntime = "/tmp/weston";
constexpr const char* kSocket = "/tmp/weston/wayland-7";
constexpr WindowLook kWhole{1920, 1080, true};
constexpr WindowLook kSmall{200, 100, true};
constexpr uid_t kNobody = 65534;

// The compositor, as long as a test lives.
class Weston {
public:
    Weston() {
        std::filesystem::create_directories(kRuntime);
        std::filesystem::permissions(kRuntime, std::filesystem::perms(0755));
        std::filesystem::remove(kSocket);
        setenv("XDG_RUNTIME_DIR", kRuntime, 1);
        setenv("WAYLAND_DISPLAY", kSocket, 1);
        m_pid = fork();
        if (m_pid == 0) {
            umask(0111);
            const std::string shell = std::string("--shell=") + ZEL_WINDOW_MANAGER;
            // A sanitizer's library comes first in a process, which weston itself does not know.
            setenv("LD_PRELOAD", ZEL_PRELOAD, 1);
            setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // weston's are not ours
            execlp("weston", "weston", "--no-config", "--backend=headless-backend.so", "--use-pixman",
                   "--width=1920", "--height=1080", shell.c_str(), "--socket=wayland-7", "--idle-time=0",
                   "--log=/tmp/weston/log", nullptr);
            _exit(127);
        }
        EXPECT_TRUE(becomesTrue(takesConnections));
    }
    ~Weston() {
        if (m_pid != 0) {
            EXPECT_EQ(end(), 0);
        }
    }
    Weston(const Weston&) = delete;
    Weston& operator=(const Weston&) = delete;

    // Ends it orderly; gives its exit status, or -1 when it died otherwise.
    int end() {
        kill(m_pid, SIGTERM);
        int status = 0;
        waitpid(std::exchange(m_pid, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    // The socket is there a moment before somebody listens to it.
    static bool takesConnections() {
        wl_display* const display = wl_display_connect(kSocket);
        if (display == nullptr) {
            return false;
        }
        wl_display_disconnect(display);
        return true;
    }

    pid_t m_pid;
};

// Somebody who is told of windows. Process ids are left out: most are this test's own.
class Told {
public:
    // Waits for a line; true when it came.
    bool hears(const std::string& line) {
        return becomesTrue([&] {
            m_notifier.roundtrip();
            return std::find(m_lines.begin(), m_lines.end(), line) != m_lines.end();
        });
    }
    // All lines until that one, which is waited for; they are not heard again.
    std::vector<std::string> until(const std::string& line) {
        EXPECT_TRUE(hears(line)) << line;
        return std::exchange(m_lines, {});
    }
    std::vector<std::string> now() {
        m_notifier.roundtrip();
        return std::exchange(m_lines, {});
    }
    // What was heard and not asked for yet.
    std::vector<std::string> heard() { return std::exchange(m_lines, {}); }
    std::string topMost() {
        m_lines.clear();
        m_notifier.askForTopMost();
        m_notifier.roundtrip();
        const std::vector<std::string> answer = std::exchange(m_lines, {});
        return answer.empty() ? "" : answer.back();
    }

private:
    std::vector<std::string> m_lines;
    NotifierClient m_notifier{[this](const std::string& line) {
        std::string text = line;
        const std::string self = ' ' + std::to_string(getpid());
        if (const std::size_t at = text.find(self); at != std::string::npos) {
            text.erase(at, self.size());
        }
        m_lines.push_back(text);
    }};
};

// A connection that does what no well-behaved client does.
class Registry {
public:
    Registry() {
        static constexpr wl_registry_listener kListener = {
            [](void* names, wl_registry* /*registry*/, std::uint32_t name, const char* interface,
               std::uint32_t /*version*/) {
                (*static_cast<std::map<std::string, std::uint32_t>*>(names))[interface] = name;
            },
            [](void* /*names*/, wl_registry* /*registry*/, std::uint32_t /*name*/) {}};
        wl_registry_add_listener(m_registry.get(), &kListener, &m_names);
        wl_display_roundtrip(m_display.get());
    }

    // The number of the notifier, 0 when it is not advertised.
    std::uint32_t notifier() { return m_names["tizen_zel_notifier"]; }

    // Binds a number without having been told of it; the interface that the window manager names in its
    // error.
    std::string bindNotifier(std::uint32_t name) {
        const auto bound = bind<tizen_zel_notifier>(tizen_zel_notifier_interface, name);
        return error();
    }

    std::string raiseNoWindow() {
        const auto compositor = bind<wl_compositor>(wl_compositor_interface, m_names["wl_compositor"]);
        const auto control =
            bind<zel_window_control>(zel_window_control_interface, m_names["zel_window_control"]);
        const Handle<wl_surface> surface(wl_compositor_create_surface(compositor.get()));
        zel_window_control_raise(control.get(), surface.get());
        return error();
    }

    // A toplevel window that never gets content.
    struct EmptyWindow {
        Handle<xdg_wm_base> base;
        Handle<wl_surface> surface;
        Handle<xdg_surface> xdgSurface;
        Handle<xdg_toplevel> toplevel;
    };
    EmptyWindow windowWithoutContent() {
        EmptyWindow window;
        window.base = bind<xdg_wm_base>(xdg_wm_base_interface, m_names["xdg_wm_base"]);
        const auto compositor = bind<wl_compositor>(wl_compositor_interface, m_names["wl_compositor"]);
        window.surface.reset(wl_compositor_create_surface(compositor.get()));
        window.xdgSurface.reset(xdg_wm_base_get_xdg_surface(window.base.get(), window.surface.get()));
        window.toplevel.reset(xdg_surface_get_toplevel(window.xdgSurface.get()));
        wl_surface_commit(window.surface.get());
        EXPECT_EQ(error(), "");
        return window;
    }

private:
    template <typename T>
    Handle<T> bind(const wl_interface& interface, std::uint32_t name) {
        return Handle<T>(static_cast<T*>(wl_registry_bind(m_registry.get(), name, &interface, 1)));
    }

    std::string error() {
        wl_display_roundtrip(m_display.get());
        const wl_interface* refuses = nullptr;
        wl_display_get_protocol_error(m_display.get(), &refuses, nullptr);
        return refuses == nullptr ? "" : refuses->name;
    }

    Handle<wl_display> m_display{wl_display_connect(nullptr)};
    Handle<wl_registry> m_registry{wl_display_get_registry(m_display.get())};
    std::map<std::string, std::uint32_t> m_names;
};

class WindowManagerTest : public testing::Test {
protected:
    ClientWindow open(const WindowLook& look, std::optional<WindowPlace> place = std::nullopt) {
        return {m_client, look, place};
    }

    Weston m_weston;
    Told m_told;
    WindowClient m_client;
};

TEST_F(WindowManagerTest, AWindowThatOpensIsVisibleAndGoesWhenItIsClosed) {
    {
        const ClientWindow window = open(kSmall);
        EXPECT_EQ(window.id(), 1);
        EXPECT_THAT(m_told.until("visibility 1 0"), ElementsAre("visibility 1 0"));
    }
    EXPECT_THAT(m_told.until("gone 1"), ElementsAre("gone 1"));
}

TEST_F(WindowManagerTest, EveryWindowOfAClientHasAnIdOfItsOwn) {
    const ClientWindow first = open(kSmall, WindowPlace{0, 0});
    const ClientWindow second = open(kSmall, WindowPlace{500, 0});

    EXPECT_EQ(first.id(), 1);
    EXPECT_EQ(second.id(), 2);
    EXPECT_THAT(m_told.until("visibility 2 0"), ElementsAre("visibility 1 0", "visibility 2 0"));
}

TEST_F(WindowManagerTest, AWindowIsCoveredByWhatLiesInFrontOfIt) {
    const ClientWindow behind = open(kSmall, WindowPlace{0, 0});
    ClientWindow cover = open(kSmall, WindowPlace{500, 0});
    m_told.until("visibility 2 0");

    cover.place({100, 0});
    EXPECT_THAT(m_told.until("visibility 1 1"), ElementsAre("visibility 1 1"));
    cover.place({0, 0});
    EXPECT_THAT(m_told.until("visibility 1 2"), ElementsAre("visibility 1 2"));
    cover.look({200, 100, false});
    EXPECT_THAT(m_told.until("visibility 1 0"), ElementsAre("visibility 1 0"));
}

TEST_F(WindowManagerTest, RaisingChangesWhatIsCovered) {
    ClientWindow first = open(kSmall, WindowPlace{0, 0});
    const ClientWindow second = open(kSmall, WindowPlace{0, 0});
    m_told.until("visibility 1 2");
    m_told.now();

    first.raise();

    EXPECT_THAT(m_told.until("visibility 2 2"), ElementsAre("visibility 1 0", "visibility 2 2"));
    EXPECT_EQ(m_told.topMost(), "top 1");
}

TEST_F(WindowManagerTest, AMinimisedWindowIsNotVisibleUntilItIsRaised) {
    ClientWindow window = open(kSmall);
    m_told.until("visibility 1 0");

    window.minimise();
    EXPECT_THAT(m_told.until("visibility 1 2"), ElementsAre("visibility 1 2"));
    EXPECT_EQ(m_told.topMost(), "top -1");
    window.raise();
    EXPECT_THAT(m_told.until("visibility 1 0"), ElementsAre("visibility 1 0"));
}

TEST_F(WindowManagerTest, AWindowWithoutContentIsNotVisible) {
    ClientWindow window = open(kSmall);
    m_told.until("visibility 1 0");

    window.hide();
    EXPECT_THAT(m_told.until("visibility 1 2"), ElementsAre("visibility 1 2"));
    window.show();
    EXPECT_THAT(m_told.until("visibility 1 0"), ElementsAre("visibility 1 0"));
}

TEST_F(WindowManagerTest, AWindowThatNeverHadContentIsNotSpokenOf) {
    Registry client;
    const auto empty = client.windowWithoutContent();
    m_told.now();

    const ClientWindow later = open(kSmall);

    EXPECT_EQ(later.id(), 2);
    EXPECT_THAT(m_told.until("visibility 2 0"), ElementsAre("visibility 2 0"));
}

TEST_F(WindowManagerTest, AMinimisedWindowStaysSoWhenItHasContentAgain) {
    ClientWindow window = open(kSmall, WindowPlace{0, 0});
    m_told.until("visibility 1 0");

    window.minimise();
    window.hide();
    m_told.until("visibility 1 2");
    window.show();
    const ClientWindow later = open(kSmall, WindowPlace{500, 0});

    EXPECT_THAT(m_told.until("visibility 2 0"), ElementsAre("visibility 2 0"));
}

TEST_F(WindowManagerTest, AWindowThatIsRaisedWithoutContentIsVisibleWhenItHasItAgain) {
    ClientWindow window = open(kSmall);
    m_told.until("visibility 1 0");
    window.minimise();
    window.hide();
    m_told.until("visibility 1 2");

    window.raise();
    window.show();

    EXPECT_THAT(m_told.until("visibility 1 0"), ElementsAre("visibility 1 0"));
}

TEST_F(WindowManagerTest, AWindowBesideTheScreenIsNotVisible) {
    ClientWindow window = open(kSmall, WindowPlace{-500, 0});
    EXPECT_THAT(m_told.until("visibility 1 2"), ElementsAre("visibility 1 2"));

    window.place({-100, 0});
    EXPECT_THAT(m_told.until("visibility 1 0"), ElementsAre("visibility 1 0"));
}

TEST_F(WindowManagerTest, WhoBindsIsToldThePresentStateOfEveryWindow) {
    ClientWindow first = open(kSmall, WindowPlace{0, 0});
    const ClientWindow second = open(kSmall, WindowPlace{100, 0});
    first.hint(1);
    m_told.until("visibility 2 0");

    Told late;

    EXPECT_THAT(late.now(), ElementsAre("visibility 1 1", "hint 1 1", "visibility 2 0"));
}

TEST_F(WindowManagerTest, EveryBinderIsServedAndMayLeave) {
    auto second = std::make_unique<Told>();
    ClientWindow window = open(kSmall);
    EXPECT_TRUE(m_told.hears("visibility 1 0"));
    EXPECT_TRUE(second->hears("visibility 1 0"));

    second.reset();
    window.minimise();

    EXPECT_TRUE(m_told.hears("visibility 1 2"));
}

TEST_F(WindowManagerTest, TheWindowsOfAKilledClientAreGone) {
    const pid_t client = fork();
    if (client == 0) {
        WindowClient connection;
        const ClientWindow window(connection, kSmall, std::nullopt);
        pause();
        _exit(1);
    }
    const std::string window = "1 " + std::to_string(client);
    EXPECT_TRUE(m_told.hears("visibility " + window + " 0"));
    m_told.now();

    kill(client, SIGKILL);
    waitpid(client, nullptr, 0);

    EXPECT_THAT(m_told.until("gone " + window), ElementsAre("gone " + window));
}

TEST_F(WindowManagerTest, OnlyRootSeesTheNotifierAndBindsIt) {
    const std::uint32_t name = Registry().notifier();
    ASSERT_NE(name, 0U);
    EXPECT_EQ(Registry().bindNotifier(name), "");

    const pid_t stranger = fork();
    if (stranger == 0) {
        const bool isNobody = setresuid(kNobody, kNobody, kNobody) == 0;
        const bool isHidden = Registry().notifier() == 0;
        const bool isRefused = Registry().bindNotifier(name) == "wl_registry";
        _exit((isNobody ? 0 : 1) + (isHidden ? 0 : 2) + (isRefused ? 0 : 4));
    }
    int status = 0;
    waitpid(stranger, &status, 0);

    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1: user not changed, 2: seen, 4: not refused";
}

TEST_F(WindowManagerTest, AHintIsToldWhenItChanges) {
    ClientWindow window = open(kSmall);
    m_told.until("visibility 1 0");

    window.hint(1);
    window.hint(1);
    window.hint(2);

    EXPECT_THAT(m_told.now(), ElementsAre("hint 1 1", "hint 1 2"));
}

TEST_F(WindowManagerTest, ChangesOfVisibilityAreAnnouncedOnRequest) {
    ClientWindow window = open(kSmall);
    m_told.until("visibility 1 0");

    window.announceReady(1);
    window.announceAsync(2);

    EXPECT_THAT(m_told.now(), ElementsAre("ready 1 1", "async 1 2"));
}

TEST_F(WindowManagerTest, TheWindowOnTopIsTheForemostThatIsSeen) {
    EXPECT_EQ(m_told.topMost(), "top -1");
    const ClientWindow behind = open(kSmall);
    m_told.until("visibility 1 0");
    EXPECT_EQ(m_told.topMost(), "top 1");
    const ClientWindow cover = open(kWhole);
    m_told.until("visibility 2 0");
    EXPECT_EQ(m_told.topMost(), "top 2");
}

TEST_F(WindowManagerTest, APartOfAWindowDoesNotCoverTheWindow) {
    ClientWindow window = open({200, 100, false}, WindowPlace{0, 0});
    const ClientWindow behind = open(kSmall, WindowPlace{500, 0});
    window.raise();
    m_told.until("visibility 2 0");

    window.addPart({50, 50, true}, {10, 10});
    window.place({500, 0});

    EXPECT_THAT(m_told.until("visibility 2 1"), ElementsAre("visibility 2 1"));
}

TEST_F(WindowManagerTest, AMenuCoversItsWindowAndIsNoWindow) {
    ClientWindow window = open(kSmall, WindowPlace{0, 0});
    m_told.until("visibility 1 0");

    window.openMenu({50, 50, true}, {10, 10});

    EXPECT_THAT(m_told.until("visibility 1 1"), ElementsAre("visibility 1 1"));
}

TEST_F(WindowManagerTest, AMenuGoesWhereItsWindowGoes) {
    ClientWindow window = open(kSmall, WindowPlace{0, 0});
    const ClientWindow other = open(kSmall, WindowPlace{50, 0});
    window.raise();
    window.openMenu({50, 50, true}, {120, 10});
    m_told.until("visibility 1 1");
    m_told.now();

    window.minimise();

    EXPECT_THAT(m_told.until("visibility 2 0"), ElementsAre("visibility 1 2", "visibility 2 0"));
}

TEST_F(WindowManagerTest, ARequestForWhatIsNoWindowIsRefused) {
    Registry stranger;

    EXPECT_EQ(stranger.raiseNoWindow(), "zel_window_control");
}

TEST_F(WindowManagerTest, ARequestWithAWrongValueIsRefused) {
    ClientWindow window = open(kSmall);
    m_told.until("visibility 1 0");

    EXPECT_THROW(window.hint(3), std::runtime_error);
    EXPECT_THAT(m_told.until("gone 1"), ElementsAre("gone 1"));
}

TEST_F(WindowManagerTest, TheCompositorEndsWithoutAWordAboutItsWindows) {
    const ClientWindow window = open(kSmall);
    m_told.until("visibility 1 0");
    Told late;  // is thrown out after the window's client
    late.now();

    EXPECT_EQ(m_weston.end(), 0);

    for (Told* told : {&m_told, &late}) {
        EXPECT_THROW(told->now(), std::runtime_error);
        EXPECT_THAT(told->heard(), IsEmpty());
    }
}

}  // namespace
