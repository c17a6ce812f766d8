// SPDX-License-Identifier: Apache-2.0
// The log on Linux: the journal when stderr leads there, stderr otherwise.
//
// A message may be logged by the child of vfork, which runs in its parent's memory. Hence nothing here is
// kept from one message to the next, and all text is on the stack.
#include "dlog.h"

#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>

// Where this file is says nothing about who logs.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include "Text.h"

namespace {

// With its line feed below PIPE_BUF: lines of several processes on one pipe don't mix.
constexpr std::size_t kLongestLine = 4076;
constexpr std::size_t kLongestIdentifier = 255;

struct PriorityRow {
    int priority;
    char letter;
    std::string_view journalField;
};

constexpr std::array<PriorityRow, 5> kPriorities{{
    {DLOG_DEBUG, 'D', "PRIORITY=7"},
    {DLOG_INFO, 'I', "PRIORITY=6"},
    {DLOG_WARN, 'W', "PRIORITY=4"},
    {DLOG_ERROR, 'E', "PRIORITY=3"},
    {DLOG_FATAL, 'F', "PRIORITY=2"},
}};

struct Message {
    const PriorityRow& priority;
    std::string_view tag;
    std::string_view text;
};

class ErrnoKeeper {
public:
    ErrnoKeeper() : m_errno(errno) {}
    ~ErrnoKeeper() { errno = m_errno; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    int m_errno;
};

// The file that the service manager connected as stderr; JOURNAL_STREAM tells its device and inode.
struct JournalStream {
    std::uintmax_t device = 0;
    std::uintmax_t inode = 0;
    bool known = false;
};

JournalStream readJournalStream() {
    JournalStream stream;
    const char* variable = std::getenv("JOURNAL_STREAM");
    const std::string_view text = variable == nullptr ? "" : variable;
    const char* end = text.data() + text.size();
    const auto device = std::from_chars(text.data(), end, stream.device);
    if (device.ec != std::errc() || device.ptr == end || *device.ptr != ':') {
        return stream;
    }
    const auto inode = std::from_chars(device.ptr + 1, end, stream.inode);
    stream.known = inode.ec == std::errc() && inode.ptr == end;
    return stream;
}

// Read when the program is loaded, because reading the environment later would race with who changes it.
const JournalStream kJournalStream = readJournalStream();

bool isStderrTheJournal() {
    struct stat status {};
    return kJournalStream.known && fstat(STDERR_FILENO, &status) == 0 &&
           status.st_dev == kJournalStream.device && status.st_ino == kJournalStream.inode;
}

// The process whose memory this is. A child of fork has its own and says so; a child of vfork only borrows
// it.
std::atomic<pid_t> memoryOwner{getpid()};

void claimMemory() {
    memoryOwner = getpid();
}

// Time zone data is loaded now, not by whoever logs first.
[[maybe_unused]] const int kPrepared = (tzset(), pthread_atfork(nullptr, nullptr, claimMemory));

int threadId() {
    return static_cast<int>(syscall(SYS_gettid));
}

const PriorityRow* findPriority(int priority) {
    for (const PriorityRow& row : kPriorities) {
        if (row.priority == priority) {
            return &row;
        }
    }
    return nullptr;
}

iovec asField(std::string_view text) {
    return {const_cast<char*>(text.data()), text.size()};
}

bool sendToJournal(const Message& message, int& sent) {
    constexpr std::string_view kText = "MESSAGE=";
    constexpr std::string_view kTag = "SYSLOG_IDENTIFIER=";
    dlog::Text<kText.size() + kLongestLine> text;
    text.append(kText);
    text.append(message.text);
    dlog::Text<kTag.size() + kLongestIdentifier> tag;
    tag.append(kTag);
    tag.append(message.tag);
    std::array<char, 24> thread{};
    const int threadSize = std::snprintf(thread.data(), thread.size(), "TID=%d", threadId());

    const std::array<iovec, 4> fields{asField(text.view()), asField(message.priority.journalField),
                                      asField(tag.view()),
                                      asField({thread.data(), static_cast<std::size_t>(threadSize)})};
    sent = static_cast<int>(text.view().size() - kText.size());
    return sd_journal_sendv(fields.data(), static_cast<int>(fields.size())) >= 0;
}

void appendTime(dlog::Text<kLongestLine>& line) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 32> part{};
    line.append({part.data(), std::strftime(part.data(), part.size(), "%m-%d %H:%M:%S", &local)});
    std::snprintf(part.data(), part.size(), ".%03d", static_cast<int>(now.tv_nsec / 1000000));
    line.append(part.data());
    line.append({part.data(), std::strftime(part.data(), part.size(), "%z ", &local)});
}

int writeToStderr(const Message& message) {
    constexpr std::size_t kTagWidth = 8;
    dlog::Text<kLongestLine> line;
    appendTime(line);
    const std::array<char, 2> priority{message.priority.letter, '/'};
    line.append({priority.data(), priority.size()});
    const std::size_t tagStart = line.view().size();
    line.append(message.tag);
    line.padTo(tagStart + kTagWidth);
    std::array<char, 48> process{};
    std::snprintf(process.data(), process.size(), "(P%5d, T%5d): ", static_cast<int>(getpid()), threadId());
    line.append(process.data());
    line.append(message.text);
    line.endLine();

    ssize_t written = -1;
    do {
        written = write(STDERR_FILENO, line.view().data(), line.view().size());
    } while (written < 0 && errno == EINTR);
    return static_cast<int>(written);
}

int deliver(const Message& message) {
    // libsystemd keeps the number of a descriptor in memory. Opened by a child that only borrows the memory,
    // it would be a number that means nothing, or something else, to the parent. The journal also reads
    // stderr itself.
    if (getpid() == memoryOwner && isStderrTheJournal()) {
        int sent = 0;
        if (sendToJournal(message, sent)) {
            return sent;
        }
    }
    return writeToStderr(message);
}

}  // namespace

int __dlog_print(log_id_t /*log_id*/, int prio, const char* tag, const char* fmt, ...) {
    const ErrnoKeeper keeper;
    const PriorityRow* priority = findPriority(prio);
    if (priority == nullptr || tag == nullptr || fmt == nullptr) {
        return -1;
    }
    // One byte longer than any line, so that a text that was cut here is also seen to be cut there.
    std::array<char, kLongestLine + 2> text;
    va_list arguments;
    va_start(arguments, fmt);
    const int length = std::vsnprintf(text.data(), text.size(), fmt, arguments);
    va_end(arguments);
    return length < 0 ? -1 : deliver({*priority, tag, text.data()});
}
