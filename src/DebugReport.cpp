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

TCDebugReport::TCDebugReport(const TSHead& head, std::size_t recordsSize) {
    m_writer["indentation"] = "   ";
    Json::Value root;
    root["LastTryTerminateTime"] = FormatTimeOrNothing(head.lastTryTerminateTime);
    root["LastTryTerminateResult"] = head.lastTryTerminateResult ? "SUCCESS" : "FAIL";
    root["TvViewerState"] = head.tvViewerState;
    root["TvViewerStateChangeTime"] = FormatTimeOrNothing(head.tvViewerStateChangeTime);
    root[kRecords] = Json::Value();
    const std::string document = m_Render(root);
    const std::size_t list = FindNull(document);
    m_document.reserve(document.size() + recordsSize);
    m_document.assign(document, 0, list);
    m_end = document.substr(list);
}

// The record is rendered as the only one of a document, so that it has the layout of the whole.
void TCDebugReport::Append(const TCSessionControl::DebugRecord& record, bool isTerminated,
                           const std::deque<TCSessionControl::StackTrace>& recentTraces) {
    Json::Value alone;
    alone[kRecords] = Json::Value();
    const std::size_t list = FindNull(m_Render(alone));
    alone[kRecords].append(ToJson(record, isTerminated, recentTraces));
    const std::string document = m_Render(alone);
    const std::size_t bracket = document.find('[', list);
    const std::size_t end = document.rfind('}', document.size() - 2) + 1;
    if (m_isEmpty) {
        m_document.append(document, list, end - list);
        m_end = document.substr(end);
    } else {
        m_document += ',';
        m_document.append(document, bracket + 1, end - bracket - 1);
    }
    m_isEmpty = false;
}

std::string TCDebugReport::Take() {
    m_document += m_end;
    return std::move(m_document);
}

std::string TCDebugReport::m_Render(const Json::Value& value) const {
    return Json::writeString(m_writer, value);
}
