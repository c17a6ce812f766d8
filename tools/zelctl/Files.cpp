// SPDX-License-Identifier: Apache-2.0
#include "Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace zelctl {

namespace {

// As much as the daemon itself would read.
constexpr off_t kMaxSize = off_t{64} * 1024 * 1024;

struct Row {
    const char* path;
    const char* meaning;
};

constexpr std::array<Row, kMarkerCount> kMarkers{{
    {"/tmp/zel_lite_subsequent_start", "the daemon has started since boot"},
    {"/tmp/zel_lite_zel_daemon_is_running", "the service runs"},
    {"/tmp/zel_restart", "the service's next start is a restart"},
}};
static_assert(kMarkers.back().path != nullptr, "a row for each marker");

constexpr std::array<Row, kSwitchCount> kSwitches{{
    {"/etc/debug", "a set for developers"},
    {"/etc/zel-lite/zel_lite_aggressive_terminate", "the service is terminated after the last session"},
    {"/etc/zel-lite/zel_lite_disable_tracing", "traces are not kept"},
    {"/etc/zel-lite/zel_lite_disable_opened_sessions_check", "open sessions do not matter"},
}};
static_assert(kSwitches.back().path != nullptr, "a row for each switch");

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return m_fd; }

private:
    int m_fd;
};

// What is wrong with a file of the daemon.
std::string problemOf(const struct stat& status) {
    if (S_ISLNK(status.st_mode)) {
        return "a symbolic link";
    }
    if (!S_ISREG(status.st_mode)) {
        return "not a plain file";
    }
    if (status.st_uid != 0) {
        return "owned by user " + std::to_string(status.st_uid) + ", not by root";
    }
    if (status.st_nlink > 1) {
        return "a file with another name besides";
    }
    return {};
}

std::uint64_t changeOf(const struct stat& status) {
    return static_cast<std::uint64_t>(status.st_ctim.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(status.st_ctim.tv_nsec) / 1000;
}

// When the folder of a file was last changed, or the one that the folder would be in.
std::uint64_t changeOfFolder(std::string path) {
    struct stat status {};
    do {
        path.erase(std::max<std::size_t>(path.rfind('/'), 1));
    } while (stat(path.c_str(), &status) != 0 && path != "/");
    return changeOf(status);
}

template <typename Rows>
std::vector<Marker> inspectAll(const Rows& rows) {
    std::vector<Marker> found;
    found.reserve(rows.size());
    for (const Row& row : rows) {
        found.push_back(inspect(row.path, row.meaning));
    }
    return found;
}

std::string readAll(int fd, std::size_t size) {
    std::string content(size, '\0');
    std::size_t have = 0;
    while (have < size) {
        const ssize_t got = read(fd, content.data() + have, size - have);
        if (got < 0) {
            throw std::runtime_error(std::strerror(errno));
        }
        if (got == 0) {
            break;
        }
        have += static_cast<std::size_t>(got);
    }
    content.resize(have);
    return content;
}

}  // namespace

std::vector<Marker> markers() {
    return inspectAll(kMarkers);
}

std::vector<Marker> switches() {
    std::vector<Marker> found = inspectAll(kSwitches);
    // Whatever it is, its being there is what the daemon looks at.
    for (Marker& marker : found) {
        marker.problem.clear();
        if (!marker.isPresent) {
            marker.changed = changeOfFolder(marker.path);
        }
    }
    return found;
}

Marker inspect(const std::string& path, const std::string& meaning) {
    Marker marker;
    marker.path = path;
    marker.meaning = meaning;
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        marker.problem = errno == ENOENT || errno == ENOTDIR ? "" : std::strerror(errno);
        return marker;
    }
    marker.isPresent = true;
    marker.problem = problemOf(status);
    marker.changed = changeOf(status);
    return marker;
}

Sessions savedSessions() {
    // A FIFO that was planted must not hold this up.
    const Descriptor file(open(kStateFile, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (file.get() < 0) {
        if (errno == ENOENT) {
            return {};
        }
        throw std::runtime_error(errno == ELOOP
                                     ? "it is a symbolic link, which the daemon does not follow either"
                                     : std::strerror(errno));
    }
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        throw std::runtime_error(std::strerror(errno));
    }
    if (const std::string problem = problemOf(status); !problem.empty()) {
        throw std::runtime_error("it is " + problem);
    }
    if (status.st_size > kMaxSize) {
        throw std::runtime_error("it is larger than any table of sessions");
    }
    return parseSessions(readAll(file.get(), static_cast<std::size_t>(status.st_size)));
}

}  // namespace zelctl
