// SPDX-License-Identifier: Apache-2.0
#include "DebugReport.h"

#include <array>
#include <cstdio>
#include <utility>

namespace {

// The last member of the document: JsonCpp orders members by the bytes of their names.
constexpr const char* kRecords = "zel-lite";

// Where the value of the last member begins, which is null.
std::size_t FindNull(const std::string& document) {
    return document.rfind("null");
}

std::string FormatTime(std::int64_t timeMs) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%d.%03d", static_cast<int>(timeMs / 1000),
                  static_cast<int>(timeMs % 1000));
    return text.data();
}

std::string FormatTimeOrNothing(std::int64_t timeMs) {
    return timeMs == 0 ? std::string() : FormatTime(timeMs);
}

const char* FormatLanguage(ESessionControl_ProgLang language) {
    switch (language) {
        case ESessionControl_ProgLang_Cpp:
            return "C/C++";
        case ESessionControl_ProgLang_CSharp:
            return "C#";
    }
    return "INVALID";
}

Json::Value ToJson(const TCSessionControl::StackTrace& trace) {
    Json::Value json;
    json["CreationTime"] = FormatTime(trace.creationTime);
    json["StackTrace"] = trace.stackTrace;
    if (trace.destructionTime != 0) {
        json["DestructionTime"] = FormatTime(trace.destructionTime);
    }
    return json;
}

Json::Value ToJson(const TCSessionControl::DebugRecord& record, bool isTerminated,
                   const std::deque<TCSessionControl::StackTrace>& recentTraces) {
    Json::Value json;
    json["PID"] = record.pid;
    json["ProcessName"] = record.processName;
    json["Language"] = FormatLanguage(record.language);
    json["TerminationTime"] = isTerminated ? FormatTime(record.destructionTime) : std::string();
    Json::Value& traces = json["StackTraces"];
    for (const auto& trace : recentTraces) {
        traces.append(ToJson(trace));
    }
    for (const auto& [traceId, trace] : record.traces) {
        traces.append(ToJson(trace));
    }
    return json;
}

}  // namespace

TCDebugReport::TCDebugReport(const TSHead& head, TWrite write) : m_write(std::move(write)) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "   ";
    m_writer.reset(builder.newStreamWriter());
    Json::Value alone;
    alone[kRecords] = Json::Value();
    m_listAlone = FindNull(m_Render(alone));
    Json::Value root;
    root["LastTryTerminateTime"] = FormatTimeOrNothing(head.lastTryTerminateTime);
    root["LastTryTerminateResult"] = head.lastTryTerminateResult ? "SUCCESS" : "FAIL";
    root["TvViewerState"] = head.tvViewerState;
    root["TvViewerStateChangeTime"] = FormatTimeOrNothing(head.tvViewerStateChangeTime);
    root[kRecords] = Json::Value();
    const std::string document = m_Render(root);
    const std::size_t list = FindNull(document);
    m_write(document.substr(0, list));
    m_end = document.substr(list);
}

// The record is rendered as the only one of a document, so that it has the layout of the whole.
void TCDebugReport::Append(const TCSessionControl::DebugRecord& record, bool isTerminated,
                           const std::deque<TCSessionControl::StackTrace>& recentTraces) {
    Json::Value alone;
    alone[kRecords].append(ToJson(record, isTerminated, recentTraces));
    std::string document = m_Render(alone);
    const std::size_t end = document.rfind('}', document.size() - 2) + 1;
    m_end = document.substr(end);
    document.erase(end);
    document.erase(0, m_isEmpty ? m_listAlone : document.find('[', m_listAlone));
    if (!m_isEmpty) {
        document.front() = ',';
    }
    m_write(document);
    m_isEmpty = false;
}

void TCDebugReport::Finish() {
    m_write(m_end);
}

std::string TCDebugReport::m_Render(const Json::Value& value) {
    m_writer->write(value, &m_stream);
    std::string text = m_stream.str();
    m_stream.str(std::string());
    return text;
}
