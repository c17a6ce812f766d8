// SPDX-License-Identifier: Apache-2.0
#include "DebugReport.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <utility>

namespace {

// The last member of the document: JsonCpp orders members by the bytes of their names.
constexpr const char* kRecords = "zel-lite";

// How a trace without text looks in the document. Within a text it can't occur: quotation marks are escaped
// there.
constexpr std::string_view kEmptyTrace = "\"StackTrace\" : \"\"";

// What JsonCpp makes of a text, without the quotation marks.
std::string QuoteByJsonCpp(const std::string& text) {
    const std::string quoted = Json::writeString(Json::StreamWriterBuilder(), Json::Value(text));
    return quoted.substr(1, quoted.size() - 2);
}

/** What JsonCpp makes of a character of ASCII; empty for one that stays as it is, and for any other byte. */
using TEscapes = std::array<std::string, 256>;

TEscapes MakeEscapes() {
    constexpr std::size_t kAsciiCharacters = 128;
    TEscapes escapes;
    for (std::size_t i = 0; i < kAsciiCharacters; ++i) {
        const std::string character(1, static_cast<char>(i));
        if (const std::string quoted = QuoteByJsonCpp(character); quoted != character) {
            escapes.at(i) = quoted;
        }
    }
    return escapes;
}

// Appends what JsonCpp makes of a text, which alone takes 8 ms for a megabyte: a text of ASCII is put
// together of what JsonCpp makes of its characters.
void AppendQuoted(std::string& quoted, const std::string& text) {
    static const TEscapes kEscapes = MakeEscapes();
    static const std::array<bool, kEscapes.size()> kIsPlain = [] {
        std::array<bool, kEscapes.size()> isPlain{};
        for (std::size_t i = 0; i < isPlain.size(); ++i) {
            isPlain.at(i) = i < isPlain.size() / 2 && kEscapes.at(i).empty();
        }
        return isPlain;
    }();
    const std::size_t begin = quoted.size();
    for (auto at = text.begin(); at != text.end(); ++at) {
        const auto end = std::find_if_not(
            at, text.end(), [](char character) { return kIsPlain[static_cast<unsigned char>(character)]; });
        quoted.append(at, end);
        at = end;
        if (at == text.end()) {
            return;
        }
        const std::string& escape = kEscapes[static_cast<unsigned char>(*at)];
        if (escape.empty()) {
            quoted.replace(begin, std::string::npos, QuoteByJsonCpp(text));
            return;
        }
        quoted += escape;
    }
}

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
    // Stands for the text, which is large compared with the rest.
    json["StackTrace"] = "";
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
    std::string document = m_Render(root);
    const std::size_t list = FindNull(document);
    m_end = document.substr(list);
    document.erase(list);
    m_write(document);
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
    m_isEmpty = false;
    std::size_t written = 0;
    const auto writeText = [this, &document, &written](const std::string& text) {
        const std::size_t begin = document.find(kEmptyTrace, written) + kEmptyTrace.size() - 1;
        m_piece.assign(document, written, begin - written);
        AppendQuoted(m_piece, text);
        m_write(m_piece);
        written = begin;
    };
    for (const auto& trace : recentTraces) {
        writeText(trace.stackTrace);
    }
    for (const auto& [traceId, trace] : record.traces) {
        writeText(trace.stackTrace);
    }
    document.erase(0, written);
    m_write(document);
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
