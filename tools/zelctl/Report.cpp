// SPDX-License-Identifier: Apache-2.0
#include "Report.h"

#include <json/json.h>

#include <charconv>
#include <ctime>
#include <memory>
#include <stdexcept>

#include "Text.h"

namespace zelctl {

namespace {

// The value's member, which must be a text.
std::string textOf(const Json::Value& object, const char* key) {
    const Json::Value& value = object[key];
    if (!value.isString()) {
        throw std::runtime_error(std::string("there is no text '") + key + "'");
    }
    return value.asString();
}

// The members of an array; the daemon writes null for an empty one.
const Json::Value& arrayOf(const Json::Value& object, const char* key) {
    const Json::Value& value = object[key];
    if (!object.isMember(key) || !(value.isArray() || value.isNull())) {
        throw std::runtime_error(std::string("there is no list '") + key + "'");
    }
    return value;
}

// An element of a list, which must be an object: asking anything else for a member would end the process.
const Json::Value& asObject(const Json::Value& value) {
    if (!value.isObject()) {
        throw std::runtime_error("a list holds something that is no object");
    }
    return value;
}

// The library throws what is its own where nesting is too deep.
Json::Value documentOf(std::string_view text) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errors;
    try {
        if (reader->parse(text.data(), text.data() + text.size(), &root, &errors) && root.isObject()) {
            return root;
        }
    } catch (const Json::Exception& problem) {
        errors = problem.what();
    }
    throw std::runtime_error(errors.empty() ? "it is no object" : errors);
}

std::optional<DaemonTime> timeOf(const Json::Value& object, const char* key) {
    const std::string text = textOf(object, key);
    const std::optional<DaemonTime> time = parseTime(text);
    if (!time && !text.empty()) {
        throw std::runtime_error(std::string("'") + key + "' is no time");
    }
    return time;
}

// The daemon ends the texts of applications with a zero of its own.
std::string withoutZero(std::string text) {
    if (!text.empty() && text.back() == '\0') {
        text.pop_back();
    }
    return text;
}

Trace traceOf(const Json::Value& json) {
    Trace trace;
    trace.opened = timeOf(json, "CreationTime").value_or(0);
    if (json.isMember("DestructionTime")) {
        trace.closed = timeOf(json, "DestructionTime");
    }
    trace.text = withoutZero(textOf(json, "StackTrace"));
    return trace;
}

Record recordOf(const Json::Value& json) {
    Record record;
    record.pid = textOf(json, "PID");
    record.program = textOf(json, "ProcessName");
    record.language = textOf(json, "Language");
    record.ended = timeOf(json, "TerminationTime");
    for (const Json::Value& trace : arrayOf(json, "StackTraces")) {
        record.traces.push_back(traceOf(asObject(trace)));
    }
    return record;
}

std::string agoText(DaemonTime time, DaemonTime now) {
    return spanText(between(time, now)) + " ago";
}

std::string titleOf(const Record& record, DaemonTime now) {
    std::string title = (record.program.empty() ? "unknown program" : printable(record.program)) +
                        ", process " + printable(record.pid) + ", " + printable(record.language);
    if (record.ended) {
        title += ", ended " + agoText(*record.ended, now);
    }
    return title;
}

std::string traceText(const Trace& trace, DaemonTime now) {
    std::string text = trace.closed ? "  closed  " + agoText(*trace.closed, now) + ", open for " +
                                          spanText(between(trace.opened, *trace.closed))
                                    : "  open    for " + spanText(between(trace.opened, now));
    for (const std::string& line : lines(trace.text)) {
        text += "\n            " + printable(line);
    }
    return text + '\n';
}

}  // namespace

Report parseReport(std::string_view json) {
    const Json::Value root = documentOf(json);
    Report report;
    for (const Json::Value& record : arrayOf(root, "zel-lite")) {
        report.records.push_back(recordOf(asObject(record)));
    }
    report.lastAttempt = timeOf(root, "LastTryTerminateTime");
    report.lastAttemptSucceeded = textOf(root, "LastTryTerminateResult") == "SUCCESS";
    report.viewerState = textOf(root, "TvViewerState");
    report.viewerStateChanged = timeOf(root, "TvViewerStateChangeTime");
    return report;
}

// Of a negative time both parts are negative.
std::optional<DaemonTime> parseTime(std::string_view text) {
    const char* const end = text.data() + text.size();
    std::int32_t seconds = 0;
    std::int32_t rest = 0;
    const auto first = std::from_chars(text.data(), end, seconds);
    if (first.ec != std::errc() || first.ptr == end || *first.ptr != '.') {
        return std::nullopt;
    }
    const auto second = std::from_chars(first.ptr + 1, end, rest);
    if (second.ec != std::errc() || second.ptr != end) {
        return std::nullopt;
    }
    return static_cast<DaemonTime>(static_cast<std::uint32_t>(std::int64_t{seconds} * 1000 + rest));
}

std::int64_t between(DaemonTime earlier, DaemonTime later) {
    return static_cast<std::uint32_t>(later) - static_cast<std::uint32_t>(earlier);
}

DaemonTime daemonNow() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<DaemonTime>(
        static_cast<std::uint32_t>(std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000));
}

std::string reportText(const Report& report, DaemonTime now) {
    std::string text;
    for (const Record& record : report.records) {
        text += titleOf(record, now) + '\n';
        for (const Trace& trace : record.traces) {
            text += traceText(trace, now);
        }
        text += '\n';
    }
    if (report.records.empty()) {
        text += "no traces\n\n";
    }
    text += "last attempt to terminate the service: ";
    text += report.lastAttempt
                ? agoText(*report.lastAttempt, now) +
                      (report.lastAttemptSucceeded ? ", it terminated" : ", it did not terminate")
                : "none since the daemon has started";
    text += "\ntelevision viewer: " + printable(report.viewerState);
    if (report.viewerStateChanged) {
        text += ", since " + spanText(between(*report.viewerStateChanged, now));
    }
    return text + '\n';
}

}  // namespace zelctl
