// SPDX-License-Identifier: Apache-2.0
#include "CallersFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "Log.h"

namespace {

constexpr const char* kFolder = "/run/zel-platform";
constexpr const char* kFile = "/run/zel-platform/ipc-callers";
constexpr const char* kTemporary = "/run/zel-platform/ipc-callers.new";

// The file is written anew when it has this many lines more than twice its callers.
constexpr std::size_t kSpareLines = 1000;

std::string lineOf(const std::string& name, std::uint32_t pid) {
    return "+ " + name + ' ' + std::to_string(pid) + '\n';
}

}  // namespace

CallersFile::~CallersFile() {
    if (m_descriptor >= 0) {
        close(m_descriptor);
    }
}

std::pair<std::string, CallersFile::Callers> CallersFile::read() {
    std::string busId;
    Callers callers;
    std::ifstream file(kFile);
    for (std::string line; std::getline(file, line) && !file.eof();) {
        std::istringstream words(line);
        std::string kind;
        std::string name;
        std::uint32_t pid = 0;
        words >> kind >> name;
        if (kind == "bus") {
            busId = name;
        } else if (kind == "+" && words >> pid) {
            callers[name] = pid;
        } else if (kind == "-") {
            callers.erase(name);
        }
    }
    return {busId, callers};
}

void CallersFile::begin(const std::string& busId, const Callers& callers) {
    m_busId = busId;
    m_callers = callers;
    std::string content = "bus " + busId + '\n';
    for (const auto& [name, pid] : callers) {
        content += lineOf(name, pid);
    }
    if (m_descriptor >= 0) {
        close(m_descriptor);
    }
    constexpr mode_t kFolderMode = 0755;
    constexpr mode_t kFileMode = 0600;
    mkdir(kFolder, kFolderMode);
    m_descriptor =
        open(kTemporary, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NOFOLLOW, kFileMode);
    m_lines = 0;
    write(content);
    m_lines = callers.size();
    if (std::rename(kTemporary, kFile) != 0) {
        fail("rename");
    }
}

void CallersFile::add(const std::string& name, std::uint32_t pid) {
    m_callers[name] = pid;
    write(lineOf(name, pid));
}

void CallersFile::remove(const std::string& name) {
    if (m_callers.erase(name) != 0) {
        write("- " + name + '\n');
    }
}

void CallersFile::write(const std::string& line) {
    if (::write(m_descriptor, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        fail("write");
    }
    if (++m_lines > 2 * m_callers.size() + kSpareLines) {
        begin(m_busId, Callers(m_callers));
    }
}

void CallersFile::fail(const char* what) {
    if (!std::exchange(m_hasFailed, true)) {
        logError(std::string("callers are not remembered across a restart: ") + what + " of " + kFile +
                 " failed: " + std::strerror(errno));
    }
}
