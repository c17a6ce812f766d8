// SPDX-License-Identifier: Apache-2.0
#include "Store.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "FileDescriptor.h"

namespace vconf {

namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

enum class IfMissing { kFail, kMake };

FileDescriptor makeAndOpen(const FileDescriptor& parent, const std::string& name) {
    const bool made = mkdirat(parent.get(), name.c_str(), 0755) == 0;
    if (!made && errno != EEXIST) {
        return FileDescriptor();
    }
    FileDescriptor folder(openat(parent.get(), name.c_str(), kOpenFolder));
    if (made && folder) {
        fchmod(folder.get(), 0755);  // the umask may have taken some of it
    }
    return folder;
}

FileDescriptor step(const FileDescriptor& parent, const std::string& name, IfMissing ifMissing) {
    FileDescriptor folder(openat(parent.get(), name.c_str(), kOpenFolder));
    if (!folder && errno == ENOENT && ifMissing == IfMissing::kMake) {
        return makeAndOpen(parent, name);
    }
    return folder;
}

FileDescriptor openFolder(const KeyPath& path, IfMissing ifMissing) {
    FileDescriptor folder(open(path.base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (const std::string& name : path.folders) {
        if (!folder) {
            break;
        }
        folder = step(folder, name, ifMissing);
    }
    return folder;
}

bool isFolder(const FileDescriptor& parent, const char* name) {
    struct stat status {};
    return fstatat(parent.get(), name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

bool isRegular(const FileDescriptor& file) {
    struct stat status {};
    return fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
}

struct CloseStream {
    void operator()(DIR* stream) const { closedir(stream); }
};
using Stream = std::unique_ptr<DIR, CloseStream>;

// A stream that owns a descriptor of its own.
Stream streamOf(const FileDescriptor& folder) {
    FileDescriptor own(openat(folder.get(), ".", kOpenFolder));
    Stream stream(own ? fdopendir(own.get()) : nullptr);
    if (stream) {
        own.release();
    }
    return stream;
}

// Whole or not at all. The size that the file claims to have is not asked for: it may grow meanwhile.
bool readAll(const FileDescriptor& file, std::string& contents) {
    std::string part(4096, '\0');
    for (;;) {
        const ssize_t size = read(file.get(), part.data(), part.size());
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size <= 0) {
            return size == 0;
        }
        contents.append(part, 0, static_cast<std::size_t>(size));
        if (contents.size() > kLargestFile) {
            return false;
        }
    }
}

bool writeAll(const FileDescriptor& file, std::string_view contents) {
    while (!contents.empty()) {
        const ssize_t size = write(file.get(), contents.data(), contents.size());
        if (size < 0 && errno != EINTR) {
            return false;
        }
        contents.remove_prefix(size < 0 ? 0 : static_cast<std::size_t>(size));
    }
    return true;
}

// A file that is being written. Until it is put in its place it has a name that no key can have, and goes
// with this.
class NewFile {
public:
    explicit NewFile(const FileDescriptor& folder) : m_folder(folder) {
        static std::atomic<unsigned> counter{0};
        do {
            m_name =
                std::string(kReservedPrefix) + std::to_string(getpid()) + '-' + std::to_string(counter++);
            m_file = FileDescriptor(openat(m_folder.get(), m_name.c_str(),
                                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
        } while (!m_file && errno == EEXIST);
    }
    ~NewFile() {
        if (!m_name.empty()) {
            unlinkat(m_folder.get(), m_name.c_str(), 0);
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    bool write(std::string_view contents) {
        return m_file && fchmod(m_file.get(), 0644) == 0 && writeAll(m_file, contents);
    }

    // Closed before it gets its name, because closing what was written is an event of that name, too.
    bool putInPlace(const std::string& name) {
        m_file.reset();
        if (renameat(m_folder.get(), m_name.c_str(), m_folder.get(), name.c_str()) != 0) {
            return false;
        }
        m_name.clear();
        return true;
    }

private:
    const FileDescriptor& m_folder;
    std::string m_name;
    FileDescriptor m_file;
};

}  // namespace

bool makeFolder(const KeyPath& path) {
    return static_cast<bool>(openFolder(path, IfMissing::kMake));
}

Value load(const KeyPath& path) {
    const FileDescriptor folder = openFolder(path, IfMissing::kFail);
    if (!folder) {
        return {};
    }
    const FileDescriptor file(
        openat(folder.get(), path.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    std::string contents;
    return file && isRegular(file) && readAll(file, contents) ? decode(contents) : Value();
}

bool save(const KeyPath& path, const Value& value) {
    const std::string contents = encode(value);
    if (contents.size() > kLargestFile) {
        return false;
    }
    const FileDescriptor folder = openFolder(path, IfMissing::kMake);
    if (!folder) {
        return false;
    }
    NewFile file(folder);
    return file.write(contents) && file.putInPlace(path.name);
}

bool erase(const KeyPath& path) {
    const FileDescriptor folder = openFolder(path, IfMissing::kFail);
    return folder && unlinkat(folder.get(), path.name.c_str(), 0) == 0;
}

std::optional<std::vector<Entry>> list(const KeyPath& folder) {
    const FileDescriptor opened = openFolder(folder, IfMissing::kFail);
    const Stream stream = opened ? streamOf(opened) : nullptr;
    if (!stream) {
        return std::nullopt;
    }
    std::vector<Entry> entries;
    while (const dirent* found = readdir(stream.get())) {
        if (isGoodComponent(found->d_name)) {
            entries.push_back({found->d_name, isFolder(opened, found->d_name)});
        }
    }
    std::sort(entries.begin(), entries.end(),
              [](const Entry& left, const Entry& right) { return left.name < right.name; });
    return entries;
}

}  // namespace vconf
