// SPDX-License-Identifier: Apache-2.0
// What weston loads as its shell: the window manager of the simulated television.
#include <libweston/libweston.h>
#include <weston.h>

#include <exception>

#include "Control.h"
#include "Listener.h"
#include "Notifier.h"
#include "Shell.h"
#include "Windows.h"

namespace {

/** Everything there is, as long as the compositor lives. It ends without a word about the windows that end
 * with it. */
class WindowManager {
public:
    explicit WindowManager(weston_compositor& compositor)
        : m_shell(compositor, m_windows),
          m_notifier(*compositor.wl_display, m_windows),
          m_control(*compositor.wl_display, m_windows, m_shell, m_notifier),
          m_end(compositor.destroy_signal, [this] { delete this; }) {}

private:
    Windows m_windows;
    Shell m_shell;
    Notifier m_notifier;
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
