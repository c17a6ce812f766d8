// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The JSON document of the debug report.
 *
 * JsonCpp needs four to seven times the size of a document for its tree of values. So the document is
 * rendered record by record, and the tree of only one record exists at a time. The result is the same, byte
 * for byte, as if JsonCpp had rendered the document in one piece.
 */
#ifndef ZEL_LITE_DEBUG_REPORT_H
#define ZEL_LITE_DEBUG_REPORT_H

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "SessionControl.h"

/** Builds one document. Normal flow: construct, Append for each record, Take. */
class TCDebugReport {
public:
    /** What the document says besides its records. Times are in milliseconds; 0 is shown as an empty text. */
    struct TSHead {
        std::int64_t lastTryTerminateTime;
        bool lastTryTerminateResult;
        std::string tvViewerState;
        std::int64_t tvViewerStateChangeTime;
    };

    /** @param recordsSize  bytes that the records take at most; memory is reserved for them */
    TCDebugReport(const TSHead& head, std::size_t recordsSize);

    /**
     * Appends a record to the list.
     *
     * @param isTerminated  whether the record shows when its last trace was closed
     * @param recentTraces  its closed traces, shown before the open ones
     */
    void Append(const TCSessionControl::DebugRecord& record, bool isTerminated,
                const std::deque<TCSessionControl::StackTrace>& recentTraces);

    /** Returns the document. To be called once, last. */
    std::string Take();

private:
    std::string m_Render(const Json::Value& value) const;

    Json::StreamWriterBuilder m_writer;
    /** The document up to the end of the last record, and what follows that. */
    std::string m_document;
    std::string m_end;
    bool m_isEmpty = true;
};

#endif
