// SPDX-License-Identifier: Apache-2.0
// What weston loads as its shell: the window manager of the simulated television.
#include <libweston/libweston.h>
#include <weston.h>

#include <exception>
#include <memory>

#include "Control.h"
#include "Listener.h"
#include "Notifier.h"
#include "Shell.h"
#include "Windows.h"

namespace {

/** Everything there is, as long as the compositor lives. */
class WindowManager {
public:
    explicit WindowManager(weston_compositor& compositor)
        : m_display(*compositor.wl_display),
          m_shell(compositor, m_windows),
          m_notifier(std::make_unique<Notifier>(m_display, m_windows)),
          m_control(m_display, m_windows, m_shell, *m_notifier),
          m_end(compositor.destroy_signal, [this] { delete this; }) {}

    // The compositor ends like one that is killed: without a word about the windows that end with it.
    ~WindowManager() {
        m_notifier.reset();
        wl_display_destroy_clients(&m_display);
    }
    WindowManager(const WindowManager&) = delete;
    WindowManager& operator=(const WindowManager&) = delete;

private:
    wl_display& m_display;
    Windows m_windows;
    Shell m_shell;
    std::unique_ptr<Notifier> m_notifier;
    Control m_control;
    Listener m_end;
};

}  // namespace

extern "C" WL_EXPORT int wet_shell_init(weston_compositor* compositor, int* /*argc*/, char* /*argv*/[]) try {
    new WindowManager(*compositor);  // NOLINT(cppcoreguidelines-owning-memory): ends with the compositor
    return 0;
} catch (const std::exception& error) {
    weston_log("zel-window-manager: %s\n", error.what());
    return -1;
}
