// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The JSON document of the debug report.
 *
 * JsonCpp needs four to seven times the size of a document for its tree of values. So the document is
 * rendered record by record: the tree of only one record exists at a time, and the document is given away in
 * pieces. They are the same, byte for byte, as if JsonCpp had rendered the document in one piece.
 */
#ifndef ZEL_LITE_DEBUG_REPORT_H
#define ZEL_LITE_DEBUG_REPORT_H

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <sstream>
#include <string>

#include "SessionControl.h"

/** Writes one document. Normal flow: construct, Append for each record, Finish. */
class TCDebugReport {
public:
    /** What the document says besides its records. Times are in milliseconds; 0 is shown as an empty text. */
    struct TSHead {
        std::int64_t lastTryTerminateTime;
        bool lastTryTerminateResult;
        std::string tvViewerState;
        std::int64_t tvViewerStateChangeTime;
    };

    /** Receives the pieces of a document in their order, and may change them. */
    using TWrite = std::function<void(std::string& piece)>;

    TCDebugReport(const TSHead& head, TWrite write);

    /**
     * Appends a record to the list.
     *
     * @param isTerminated  whether the record shows when its last trace was closed
     * @param recentTraces  its closed traces, shown before the open ones
     */
    void Append(const TCSessionControl::DebugRecord& record, bool isTerminated,
                const std::deque<TCSessionControl::StackTrace>& recentTraces);

    /** Writes what follows the last record. */
    void Finish();

private:
    std::string m_Render(const Json::Value& value);

    TWrite m_write;
    std::unique_ptr<Json::StreamWriter> m_writer;
    std::ostringstream m_stream;
    /** Keeps its memory from one trace to the next. */
    std::string m_piece;
    /** Where the list begins in a document that has only the list. */
    std::size_t m_listAlone = 0;
    /** What follows what was written so far, when no further record comes. */
    std::string m_end;
    bool m_isEmpty = true;
};

#endif
