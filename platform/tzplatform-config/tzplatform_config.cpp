// SPDX-License-Identifier: Apache-2.0
// Folders of the platform on Linux: they are where the machine has them.
#include "tzplatform_config.h"

#include <exception>
#include <mutex>
#include <set>
#include <string>

namespace {

const char* findFolder(tzplatform_variable id) {
    return id == TZ_SYS_ETC ? "/etc" : nullptr;
}

// Keeps every path that was ever made; never destroyed, because callers may hold paths until the process is
// gone.
class Paths {
public:
    static Paths& instance() {
        static auto* const paths = new Paths;
        return *paths;
    }

    const char* intern(std::string path) {
        const std::lock_guard lock(m_mutex);
        return m_paths.insert(std::move(path)).first->c_str();
    }

private:
    std::mutex m_mutex;
    std::set<std::string> m_paths;
};

}  // namespace

const char* tzplatform_mkpath(enum tzplatform_variable id, const char* path) try {
    const char* folder = findFolder(id);
    if (folder == nullptr || path == nullptr) {
        return nullptr;
    }
    while (*path == '/') {
        ++path;
    }
    return Paths::instance().intern(std::string(folder) + '/' + path);
} catch (const std::exception&) {
    return nullptr;
}
