// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What is known of every toplevel window, and what of it was told to those who watch.
 */
#ifndef SIMULATOR_WESTON_WINDOWS_H
#define SIMULATOR_WESTON_WINDOWS_H

#include <map>
#include <optional>
#include <vector>

#include "Visibility.h"

/** The numbers are those of the notifier protocol. */
enum class Hint { added = 1, removed = 2 };

/** Is told what happens to windows; of a window's states only those that differ from the one before. */
class WindowsWatcher {
public:
    virtual ~WindowsWatcher() = default;
    virtual void onVisibility(int window, int pid, Visibility visibility) = 0;
    virtual void onHint(int window, int pid, Hint hint) = 0;
    virtual void onGone(int window, int pid) = 0;
};

/** All toplevel windows there are. Watchers are not owned and outlive it or are removed before. */
class Windows {
public:
    /** What get_top_most_client is answered when no window is seen. */
    static constexpr int kNone = -1;

    /**
     * Counts a window in. It is not spoken of before it was on the screen, seen or not.
     *
     * @param pid  process id of its client
     * @return its id: positive, and never given to another window
     */
    int add(int pid);
    void remove(int window);

    /** The screen has changed: windows that are not among the sights are not on it. */
    void seen(const std::vector<Sight>& sights);
    void setHint(int window, Hint hint);

    /** The foremost window of which something is seen, or kNone. */
    int topMost() const;
    int pidOf(int window) const;

    /** From here on the watcher is told; first the present state of every window that was spoken of. */
    void addWatcher(WindowsWatcher& watcher);
    void removeWatcher(WindowsWatcher& watcher);

private:
    struct Window {
        int pid;
        std::optional<Visibility> visibility;  ///< nothing until it was on the screen
        Hint hint;
    };

    void setVisibility(int id, Window& window, Visibility visibility);

    std::map<int, Window> m_windows;
    std::vector<Sight> m_sights;
    std::vector<WindowsWatcher*> m_watchers;
    int m_lastId = 0;
};

#endif
