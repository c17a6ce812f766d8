// SPDX-License-Identifier: Apache-2.0
// What zelctl can do: a table of verbs, each with its options.
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Verbs.h"

namespace {

using zelctl::Language;

// All that a command line can say.
struct Choice {
    bool json = false;
    bool keep = false;
    bool withSession = false;
    int timeout = static_cast<int>(zelctl::kQuestionLimit.count());
    int openTimeout = static_cast<int>(zelctl::kOpenLimit.count());
    // Below 0 for one that is drawn.
    std::int64_t traceId = -1;
    Language language = Language::Cpp;
    std::string html;
    std::string text;
    std::vector<std::string> ids;
    std::vector<std::string> command;
    std::function<int()> action;

    std::chrono::seconds limit() const { return std::chrono::seconds(timeout); }
    std::chrono::seconds openLimit() const { return std::chrono::seconds(openTimeout); }
};

const std::map<std::string, Language> kLanguages{{"C++", Language::Cpp}, {"C#", Language::CSharp}};

void addJson(CLI::App& verb, Choice& choice, const char* description) {
    verb.add_flag("--json", choice.json, description);
}

void addTimeout(CLI::App& verb, int& seconds) {
    verb.add_option("--timeout", seconds, "How many seconds the daemon may take for an answer")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
}

void declareStatus(CLI::App& verb, Choice& choice) {
    addJson(verb, choice, "Print a JSON document");
    addTimeout(verb, choice.timeout);
    choice.action = [&choice] { return zelctl::status(choice.json, choice.limit()); };
}

void declareSessions(CLI::App& verb, Choice& choice) {
    addJson(verb, choice, "Print a JSON document");
    choice.action = [&choice] { return zelctl::sessions(choice.json); };
}

void declareReport(CLI::App& verb, Choice& choice) {
    CLI::Option* const json = verb.add_flag("--json", choice.json, "Print the daemon's document as it is");
    verb.add_option("--html", choice.html, "Write a page to FILE, or to standard output for '-'")
        ->type_name("FILE")
        ->check([](const std::string& path) {
            return path.empty() ? "the name of the file is empty" : std::string();
        })
        ->excludes(json);
    addTimeout(verb, choice.timeout);
    choice.action = [&choice] { return zelctl::report(choice.json, choice.html, choice.limit()); };
}

void declareExplain(CLI::App& verb, Choice& choice) {
    verb.add_option("--without", choice.ids, "What would happen without these sessions")->type_name("ID");
    addTimeout(verb, choice.timeout);
    choice.action = [&choice] {
        return zelctl::explain({choice.ids.begin(), choice.ids.end()}, choice.limit());
    };
}

void declareRun(CLI::App& verb, Choice& choice) {
    verb.add_option("--trace", choice.text, "Leave a trace that says why")->type_name("TEXT");
    addTimeout(verb, choice.openTimeout);
    verb.footer("usage: zelctl run [OPTIONS] -- CMD [ARG...]");
    verb.parse_complete_callback([&choice] {
        if (choice.command.empty()) {
            throw CLI::RequiredError("a command behind --");
        }
        if (choice.command.front().empty()) {
            throw CLI::ValidationError("CMD", "the command is empty");
        }
    });
    choice.action = [&choice] { return zelctl::run(choice.command, choice.text, choice.openLimit()); };
}

void declareOpen(CLI::App& verb, Choice& choice) {
    verb.add_flag("--keep", choice.keep,
                  "Hold the session also when the service could not be started or told");
    addTimeout(verb, choice.openTimeout);
    choice.action = [&choice] { return zelctl::open(choice.keep, choice.openLimit()); };
}

// Any user may take the name of a socket that stands for a trace, so a number that can be guessed, such as
// the process id, may be taken before this program comes to it.
std::int64_t drawTraceId() {
    std::uint64_t drawn = 0;
    if (getrandom(&drawn, sizeof drawn, 0) != static_cast<ssize_t>(sizeof drawn)) {
        throw zelctl::Trouble(zelctl::kFailed, "a number for the trace", "the kernel gave no random one",
                              "--id");
    }
    return static_cast<std::int64_t>(drawn >> 1U);
}

void declareTraceOpen(CLI::App& verb, Choice& choice) {
    verb.add_option("--id", choice.traceId, "The number of the trace [one that nobody can guess]")
        ->check(CLI::NonNegativeNumber);
    verb.add_option("--language", choice.language, "The language of the program that it is about [C++]")
        ->type_name("C++|C#")
        ->transform(CLI::CheckedTransformer(kLanguages, CLI::ignore_case));
    addTimeout(verb, choice.timeout);
    verb.add_option("TEXT", choice.text, "Why the service is needed")->required();
    choice.action = [&choice] {
        return zelctl::openTrace(choice.traceId < 0 ? drawTraceId() : choice.traceId, choice.text,
                                 choice.language, choice.limit());
    };
}

void declareTraceClose(CLI::App& verb, Choice& choice) {
    verb.add_option("ID", choice.traceId, "The number of the trace")
        ->required()
        ->check(CLI::NonNegativeNumber);
    choice.action = [&choice] { return zelctl::closeTrace(choice.traceId); };
}

void declareWatch(CLI::App& verb, Choice& choice) {
    addJson(verb, choice, "Print a JSON object a line");
    choice.action = [&choice] { return zelctl::watch(choice.json); };
}

void declareSelfTest(CLI::App& verb, Choice& choice) {
    verb.add_flag("--with-session", choice.withSession,
                  "Open and close a session also where that starts the service or makes it end");
    addTimeout(verb, choice.timeout);
    choice.action = [&choice] { return zelctl::selfTest(choice.withSession, choice.limit()); };
}

struct Verb {
    const char* name;
    /** The verb that it belongs to; null for none. */
    const char* parent;
    const char* description;
    /** Null for a verb that only has others below it. */
    void (*declare)(CLI::App& verb, Choice& choice);
};

constexpr std::array<Verb, 11> kVerbs{{
    {"status", nullptr, "State of the daemon and the service, sessions, attempts to terminate, markers",
     declareStatus},
    {"sessions", nullptr, "Who holds the service", declareSessions},
    {"report", nullptr, "The daemon's report of traces", declareReport},
    {"explain", nullptr, "Why the service runs or does not, and what is not known", declareExplain},
    {"run", nullptr, "Hold a session exactly while a command runs: run [OPTIONS] -- CMD [ARG...]",
     declareRun},
    {"open", nullptr, "Hold a session until this program is ended", declareOpen},
    {"trace", nullptr, "Hold a trace, or end one that is held", nullptr},
    {"open", "trace", "Hold a trace until it is closed or this program is ended", declareTraceOpen},
    {"close", "trace", "End the zelctl of this user that holds a trace", declareTraceClose},
    {"watch", nullptr, "A line for each change of states, sessions and triggers", declareWatch},
    {"self-test", nullptr, "Check the whole way from here to the service", declareSelfTest},
}};

// What stands behind "--" is the command's, word for word; a parser of options would find lists in "[a,b]".
std::vector<std::string> takeCommand(std::vector<std::string>& words) {
    if (words.empty() || words.front() != "run") {
        return {};
    }
    const auto mark = std::find(words.begin(), words.end(), "--");
    std::vector<std::string> command(mark == words.end() ? mark : mark + 1, words.end());
    words.erase(mark, words.end());
    return command;
}

// Asked when all is read, so that a word that is no verb has been named before.
void requireVerb(CLI::App& app) {
    app.callback([&app] {
        if (app.get_subcommands().empty()) {
            throw CLI::RequiredError("A verb");
        }
    });
}

// Reads the command line; what it asks for, or the exit status when there is nothing to do.
struct Request {
    std::function<int()> action;
    int status;
};

Request parse(std::vector<std::string> words, std::array<Choice, kVerbs.size()>& choices) {
    Request request{{}, zelctl::kDone};
    const std::vector<std::string> command = takeCommand(words);
    CLI::App app("Looks at zel-lite, and asks it for what an application can.", "zelctl");
    app.require_subcommand(0, 1);
    requireVerb(app);
    app.footer(zelctl::statusTable());
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return "zelctl: " + CLI::FailureMessage::simple(failed, error);
    });
    for (std::size_t i = 0; i < kVerbs.size(); ++i) {
        const Verb& verb = kVerbs.at(i);
        Choice& choice = choices.at(i);
        CLI::App& parent = verb.parent == nullptr ? app : *app.get_subcommand(verb.parent);
        CLI::App& added = *parent.add_subcommand(verb.name, verb.description);
        if (verb.declare == nullptr) {
            added.require_subcommand(0, 1);
            requireVerb(added);
            continue;
        }
        choice.command = command;
        verb.declare(added, choice);
        added.callback([&request, &choice] { request.action = choice.action; });
    }
    try {
        std::reverse(words.begin(), words.end());
        app.parse(words);
    } catch (const CLI::ParseError& error) {
        request.status = app.exit(error) == 0 ? zelctl::kDone : zelctl::kBadUsage;
        request.action = nullptr;
    }
    return request;
}

// A socket must not take the place of what was closed, and be written to. The other way round than it is
// used: that it was closed shows as before.
void occupyStandardStreams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0) {
            open("/dev/null", (fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) | O_CLOEXEC);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    occupyStandardStreams();
    std::array<Choice, kVerbs.size()> choices;
    const Request request = parse({argv + (argc > 0 ? 1 : 0), argv + argc}, choices);
    if (!request.action) {
        return request.status;
    }
    try {
        return request.action();
    } catch (const zelctl::Trouble& trouble) {
        std::fprintf(stderr, "zelctl: %s\n", trouble.what());
        return trouble.status();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zelctl: %s\n", error.what());
        return zelctl::kFailed;
    }
}
