// SPDX-License-Identifier: Apache-2.0
#include "Page.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include "Text.h"

namespace zelctl {

namespace {

// The policy keeps the page dead even if something of an application's came through as markup.
constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>zel-lite: sessions and traces</title>
<style>
:root { --back: #f6f7f9; --card: #fff; --text: #1d2430; --quiet: #667085; --line: #e3e7ee; --open: #2f6fde;
  --closed: #b4bccb; --session: #d9e6fd; --mark: #d2431f; --good: #1b7f4b; }
@media (prefers-color-scheme: dark) {
  :root { --back: #12151b; --card: #1b2029; --text: #e6e9ef; --quiet: #97a1b3; --line: #2c3340; --open: #6aa0ff;
    --closed: #566074; --session: #22324f; --mark: #ff7a52; --good: #59c98d; }
}
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 76rem; padding: 2rem 1.5rem 4rem; background: var(--back); color: var(--text);
  font: 15px/1.5 system-ui, "Segoe UI", "DejaVu Sans", sans-serif; }
h1 { margin: 0; font-size: 1.5rem; }
h2 { margin: 2.2rem 0 .8rem; font-size: 1.1rem; }
p.quiet, .quiet { color: var(--quiet); }
p.quiet { margin: .2rem 0 0; }
.facts { display: grid; grid-template-columns: repeat(auto-fit, minmax(11rem, 1fr)); gap: .8rem; margin: 1.5rem 0 0; }
.facts div, .lanes, details { background: var(--card); border: 1px solid var(--line); border-radius: .5rem; }
.facts div { padding: .7rem .9rem; }
.facts dt { color: var(--quiet); font-size: .8rem; }
.facts dd { margin: 0; font-size: 1.15rem; font-weight: 600; overflow-wrap: anywhere; }
.facts small { display: block; font-size: .8rem; font-weight: 400; color: var(--quiet); }
.good { color: var(--good); } .bad { color: var(--mark); }
.lanes { padding: 0 0 .6rem; overflow: hidden; }
.lane { display: grid; grid-template-columns: 14rem 1fr; border-top: 1px solid var(--line); }
.lane:first-child { border-top: 0; color: var(--quiet); font-size: .75rem; }
.who { padding: .5rem .9rem; overflow: hidden; font-size: .85rem; }
.who b, .who span { display: block; overflow: hidden; text-overflow: ellipsis; white-space: nowrap; }
.who span { color: var(--quiet); font-size: .75rem; }
.track { position: relative; margin: 0 .9rem 0 0; min-height: 1.7rem; }
.track > * { position: absolute; }
.tick { top: 0; bottom: 0; border-left: 1px solid var(--line); }
.ticks .tick { padding: .3rem 0 0 .3rem; white-space: nowrap; }
.ticks .last { padding: .3rem .3rem 0 0; border-left: 0; border-right: 1px solid var(--line); }
.attempt { top: 0; bottom: 0; border-left: 2px dashed var(--mark); }
.session { top: .35rem; bottom: .35rem; background: var(--session); border-radius: .25rem; }
.unsure { background: linear-gradient(90deg, transparent, var(--session) 4rem); }
.bar { height: 1.05rem; padding: 0 .35rem; border-radius: .2rem; min-width: 4px; overflow: hidden;
  font: .7rem/1.05rem ui-monospace, "DejaVu Sans Mono", monospace; white-space: nowrap; text-overflow: ellipsis; }
.bar.open { background: var(--open); color: var(--card); }
.bar.closed { background: var(--closed); color: var(--text); }
.legend { display: flex; flex-wrap: wrap; gap: 1.2rem; margin: .6rem 0 0; color: var(--quiet); font-size: .8rem; }
.legend i { display: inline-block; width: 1.4rem; height: .7rem; margin-right: .4rem; border-radius: .2rem; }
details { margin: 0 0 .6rem; }
summary { padding: .6rem .9rem; cursor: pointer; overflow-wrap: anywhere; }
table { width: 100%; border-collapse: collapse; table-layout: fixed; }
th, td { padding: .4rem .9rem; border-top: 1px solid var(--line); text-align: left; vertical-align: top; }
th { color: var(--quiet); font-size: .75rem; font-weight: 500; }
th:nth-child(1) { width: 6rem; } th:nth-child(2), th:nth-child(3) { width: 9rem; }
pre { margin: 0; font: .8rem/1.45 ui-monospace, "DejaVu Sans Mono", monospace; white-space: pre-wrap;
  overflow-wrap: anywhere; }
.state { font-weight: 600; } .state.open { color: var(--open); } .state.closed { color: var(--quiet); }
@media (max-width: 42rem) { .lane { grid-template-columns: 8rem 1fr; } }
@media print { body { background: #fff; } details { break-inside: avoid; } }
</style>
</head>
<body>
)";

// Bars of one lane beyond this many lines are only in the list.
constexpr std::size_t kMostLines = 12;
constexpr std::size_t kLabel = 80;
constexpr std::size_t kTooltip = 400;

struct Span {
    std::int64_t begin;  // milliseconds before now
    std::int64_t end;
};

// Where a time stands, in per cent from the left. A short time is drawn evenly; over a longer one what was
// long ago is squeezed, or the traces of the last seconds would vanish beside a session of yesterday.
class Scale {
public:
    explicit Scale(std::int64_t longest) : m_longest(std::max<std::int64_t>(longest, 1000)) {}

    bool isEven() const { return m_longest <= kEven; }
    std::int64_t longest() const { return m_longest; }
    double position(std::int64_t ago) const {
        const auto age = static_cast<double>(std::clamp<std::int64_t>(ago, 0, m_longest));
        const auto all = static_cast<double>(m_longest);
        return isEven() ? 100 * (1 - age / all)
                        : 100 * (1 - std::log1p(age / kUnit) / std::log1p(all / kUnit));
    }

private:
    static constexpr std::int64_t kEven = 120'000;
    static constexpr double kUnit = 2000;

    std::int64_t m_longest;
};

struct Lane {
    std::string title;
    std::string subtitle;
    /** The session, drawn behind its traces; whether its beginning is known. */
    std::optional<Span> session;
    bool isBeginKnown = false;
    const Record* record = nullptr;
};

std::string percent(double value) {
    std::array<char, 32> text{};
    // Without the locale, in which a number may be written with a comma.
    const auto hundredths = static_cast<long>(std::lround(value * 100));
    std::snprintf(text.data(), text.size(), "%ld.%02ld%%", hundredths / 100, hundredths % 100);
    return text.data();
}

std::string placed(const Scale& scale, const Span& span) {
    const double left = scale.position(span.begin);
    return "left:" + percent(left) + ";width:" + percent(scale.position(span.end) - left);
}

// Under this name the daemon keeps why the service refused to terminate.
constexpr const char* kRefusal = "##_LAST_TERMINATE_ERRORS";

std::string shortName(const std::string& program) {
    if (program == kRefusal) {
        return "the service's refusal";
    }
    return program.empty() ? "unknown program" : program.substr(program.rfind('/') + 1);
}

Span spanOf(const Trace& trace, DaemonTime now) {
    return {between(trace.opened, now), trace.closed ? between(*trace.closed, now) : 0};
}

std::size_t countOpen(const Record& record) {
    return static_cast<std::size_t>(std::count_if(record.traces.begin(), record.traces.end(),
                                                  [](const Trace& trace) { return !trace.closed; }));
}

// The session of a record is the one of its process.
std::map<std::string, std::string> sessionsByPid(const Sessions& sessions) {
    std::map<std::string, std::string> ids;
    for (const auto& [id, holder] : sessions) {
        if (!holder.pid.empty()) {
            ids.emplace(holder.pid, id);
        }
    }
    return ids;
}

class Page {
public:
    explicit Page(const PageContent& content) : m_content(content), m_lanes(lanes()), m_scale(longest()) {}

    std::string render() {
        m_html = kHead;
        addTitle();
        addFacts();
        addTimeline();
        addDetails();
        m_html += "</body>\n</html>\n";
        return std::move(m_html);
    }

private:
    void drawSession(Lane& lane, const std::string& id) const {
        const auto known = m_content.opened.find(id);
        std::int64_t begin = 0;
        if (known != m_content.opened.end()) {
            begin = between(known->second, m_content.now);
            lane.isBeginKnown = true;
        } else if (lane.record != nullptr) {
            for (const Trace& trace : lane.record->traces) {
                begin = std::max(begin, between(trace.opened, m_content.now));
            }
        }
        lane.session = Span{begin, 0};
    }

    Lane laneOf(const Record& record, const std::map<std::string, std::string>& ids,
                std::map<std::string, bool>& drawn) const {
        Lane lane;
        lane.title = shortName(record.program);
        lane.subtitle = record.program == kRefusal ? "reasons of the last attempt"
                                                   : "process " + record.pid + ", " + record.language;
        lane.record = &record;
        const auto id = ids.find(record.pid);
        if (id != ids.end()) {
            lane.subtitle = id->second + ", " + lane.subtitle;
            drawn[id->second] = true;
            drawSession(lane, id->second);
        } else if (record.ended) {
            lane.subtitle += ", ended";
        }
        return lane;
    }

    std::vector<Lane> lanes() const {
        std::vector<Lane> lanes;
        std::map<std::string, bool> drawn;
        const auto ids = sessionsByPid(m_content.sessions);
        for (const Record& record : m_content.report.records) {
            lanes.push_back(laneOf(record, ids, drawn));
        }
        for (const auto& [id, holder] : m_content.sessions) {
            if (drawn.count(id) == 0) {
                Lane lane;
                lane.title = holder.program.empty() ? std::string("window") : holder.program;
                lane.subtitle = id + (holder.pid.empty() ? "" : ", process " + holder.pid);
                drawSession(lane, id);
                lanes.push_back(lane);
            }
        }
        return lanes;
    }

    std::int64_t longest() const {
        std::int64_t longest = 0;
        for (const Lane& lane : m_lanes) {
            if (lane.session) {
                longest = std::max(longest, lane.session->begin);
            }
            if (lane.record != nullptr) {
                for (const Trace& trace : lane.record->traces) {
                    longest = std::max(longest, between(trace.opened, m_content.now));
                }
            }
        }
        return longest + longest / 20;
    }

    void addTitle() {
        m_html += "<h1>Sessions and traces</h1>\n<p class=\"quiet\">zel-lite on " +
                  escapedForHtml(m_content.host) + ", " + escapedForHtml(m_content.when) + "</p>\n";
    }

    void addFact(const char* name, const std::string& value, const std::string& more,
                 const char* style = "") {
        m_html += std::string("<div><dt>") + name + "</dt><dd class=\"" + style + "\">" +
                  escapedForHtml(value) + "<small>" + escapedForHtml(more) + "</small></dd></div>\n";
    }

    void addFacts() {
        const Report& report = m_content.report;
        std::size_t open = 0;
        std::size_t all = 0;
        for (const Record& record : report.records) {
            open += countOpen(record);
            all += record.traces.size();
        }
        m_html += "<dl class=\"facts\">\n";
        if (m_content.sessionsProblem.empty()) {
            addFact("Open sessions", std::to_string(m_content.sessions.size()),
                    m_content.sessions.empty() ? "nobody holds the service" : "the service is held");
        } else {
            addFact("Open sessions", "unknown", m_content.sessionsProblem, "bad");
        }
        addFact("Open traces", std::to_string(open), std::to_string(all - open) + " closed lately");
        if (report.lastAttempt) {
            addFact("Last attempt to terminate", report.lastAttemptSucceeded ? "succeeded" : "failed",
                    spanText(between(*report.lastAttempt, m_content.now)) + " ago",
                    report.lastAttemptSucceeded ? "good" : "bad");
        } else {
            addFact("Last attempt to terminate", "none", "since the daemon has started");
        }
        addFact("Television viewer", report.viewerState,
                report.viewerStateChanged
                    ? "for " + spanText(between(*report.viewerStateChanged, m_content.now))
                    : "");
        m_html += "</dl>\n";
    }

    void addTicks(bool named) {
        constexpr std::array<std::pair<std::int64_t, const char*>, 13> kTicks{{{5'000, "5 s"},
                                                                               {10'000, "10 s"},
                                                                               {20'000, "20 s"},
                                                                               {30'000, "30 s"},
                                                                               {60'000, "1 min"},
                                                                               {120'000, "2 min"},
                                                                               {600'000, "10 min"},
                                                                               {3'600'000, "1 h"},
                                                                               {21'600'000, "6 h"},
                                                                               {86'400'000, "1 d"},
                                                                               {259'200'000, "3 d"},
                                                                               {864'000'000, "10 d"},
                                                                               {1'728'000'000, "20 d"}}};
        constexpr double kGap = 7;
        double previous = 100 - kGap;
        for (const auto& [ago, name] : kTicks) {
            const double position = m_scale.position(ago);
            if (ago > m_scale.longest() || position > previous - kGap || position < 1) {
                continue;
            }
            previous = position;
            m_html += "<div class=\"tick\" style=\"left:" + percent(position) + "\">" +
                      (named ? std::string(name) + " ago" : "") + "</div>";
        }
        if (named) {
            m_html += "<div class=\"tick last\" style=\"right:0\">now</div>";
        }
    }

    void addAttempt() {
        const auto& attempt = m_content.report.lastAttempt;
        if (attempt && between(*attempt, m_content.now) <= m_scale.longest()) {
            m_html += "<div class=\"attempt\" title=\"last attempt to terminate the service\" style=\"left:" +
                      percent(m_scale.position(between(*attempt, m_content.now))) + "\"></div>";
        }
    }

    // Gives each trace the first line on which nothing is in its way; none beyond the last line.
    std::vector<std::optional<std::size_t>> linesOf(const Record& record, std::size_t& count) const {
        std::vector<std::size_t> order(record.traces.size());
        for (std::size_t i = 0; i < order.size(); ++i) {
            order[i] = i;
        }
        const DaemonTime now = m_content.now;
        std::stable_sort(order.begin(), order.end(), [&record, now](std::size_t left, std::size_t right) {
            return spanOf(record.traces[left], now).begin > spanOf(record.traces[right], now).begin;
        });
        std::vector<double> ends;
        std::vector<std::optional<std::size_t>> result(record.traces.size());
        for (const std::size_t index : order) {
            const Span span = spanOf(record.traces[index], now);
            const double begin = m_scale.position(span.begin);
            std::size_t line = 0;
            while (line < ends.size() && ends[line] > begin) {
                ++line;
            }
            if (line == kMostLines) {
                continue;
            }
            ends.resize(std::max(ends.size(), line + 1));
            ends[line] = m_scale.position(span.end) + 0.5;
            result[index] = line;
        }
        count = ends.size();
        return result;
    }

    void addBar(const Trace& trace, std::size_t line) {
        const std::vector<std::string> text = lines(trace.text);
        const std::string label = text.empty() ? "(no text)" : shortened(printable(text.front()), kLabel);
        const Span span = spanOf(trace, m_content.now);
        std::array<char, 32> top{};
        std::snprintf(top.data(), top.size(), "%zu.%02zurem", (line * 125 + 30) / 100,
                      (line * 125 + 30) % 100);
        m_html += std::string("<div class=\"bar ") + (trace.closed ? "closed" : "open") + "\" title=\"" +
                  escapedForHtml(shortened(printable(trace.text), kTooltip)) +
                  "\" style=\"top:" + top.data() + ';' + placed(m_scale, span) + "\">" +
                  escapedForHtml(label) + "</div>";
    }

    void addLane(const Lane& lane) {
        std::size_t count = 0;
        std::vector<std::optional<std::size_t>> places;
        if (lane.record != nullptr) {
            places = linesOf(*lane.record, count);
        }
        const auto hidden = std::count(places.begin(), places.end(), std::nullopt);
        m_html += "<div class=\"lane\"><div class=\"who\" title=\"" +
                  escapedForHtml(lane.title + ", " + lane.subtitle) + "\"><b>" + escapedForHtml(lane.title) +
                  "</b><span>" + escapedForHtml(lane.subtitle) + "</span>";
        if (hidden > 0) {
            m_html += "<span>" + std::to_string(hidden) + " more in the list</span>";
        }
        // At least as high as what stands beside it.
        const std::size_t height = std::max<std::size_t>(count * 125 + 40, 270);
        m_html += "</div><div class=\"track\" style=\"height:" + std::to_string(height / 100) + '.' +
                  (height % 100 < 10 ? "0" : "") + std::to_string(height % 100) + "rem\">";
        addTicks(false);
        if (lane.session) {
            m_html +=
                std::string("<div class=\"session") + (lane.isBeginKnown ? "" : " unsure") + "\" style=\"" +
                placed(m_scale, lane.isBeginKnown ? *lane.session : Span{m_scale.longest(), 0}) + "\"></div>";
        }
        addAttempt();
        for (std::size_t i = 0; i < places.size(); ++i) {
            if (places[i]) {
                addBar(lane.record->traces[i], *places[i]);
            }
        }
        m_html += "</div></div>\n";
    }

    void addTimeline() {
        m_html += "<h2>Timeline</h2>\n";
        if (m_lanes.empty()) {
            m_html += m_content.sessionsProblem.empty()
                          ? "<p class=\"quiet\">No session is open and no trace was left.</p>\n"
                          : "<p class=\"quiet\">No trace was left.</p>\n";
            return;
        }
        m_html +=
            "<div class=\"lanes\">\n<div class=\"lane\"><div class=\"who\"></div><div class=\"track ticks\">";
        addTicks(true);
        m_html += "</div></div>\n";
        for (const Lane& lane : m_lanes) {
            addLane(lane);
        }
        m_html +=
            "</div>\n<div class=\"legend\"><span><i style=\"background:var(--session)\"></i>session; one "
            "that fades in "
            "was opened at an unknown time</span><span><i style=\"background:var(--open)\"></i>open "
            "trace</span>"
            "<span><i style=\"background:var(--closed)\"></i>closed trace</span><span><i "
            "style=\"width:0;border-left:2px "
            "dashed var(--mark)\"></i>last attempt to terminate</span>";
        m_html += m_scale.isEven() ? "</div>\n"
                                   : "<span>the longer ago, the more is squeezed together</span></div>\n";
    }

    void addTrace(const Trace& trace) {
        const Span span = spanOf(trace, m_content.now);
        m_html += std::string("<tr><td class=\"state ") + (trace.closed ? "closed\">closed" : "open\">open") +
                  "</td><td>" + spanText(span.begin) + " ago</td><td>" + spanText(span.begin - span.end) +
                  "</td><td><pre>";
        bool first = true;
        for (const std::string& line : lines(trace.text)) {
            m_html += (first ? "" : "\n") + escapedForHtml(line);
            first = false;
        }
        m_html += "</pre></td></tr>\n";
    }

    void addDetails() {
        constexpr std::size_t kUnfolded = 50;
        m_html += "<h2>Traces</h2>\n";
        if (m_content.report.records.empty()) {
            m_html += "<p class=\"quiet\">None.</p>\n";
        }
        for (const Record& record : m_content.report.records) {
            m_html +=
                std::string("<details") + (record.traces.size() <= kUnfolded ? " open" : "") +
                "><summary><b>" +
                escapedForHtml(record.program.empty() ? "unknown program" : record.program) +
                "</b> <span class=\"quiet\">process " + escapedForHtml(record.pid) + ", " +
                escapedForHtml(record.language) + ", " + counted(record.traces.size(), "trace") + ", " +
                std::to_string(countOpen(record)) + " open" +
                (record.ended ? ", ended " + spanText(between(*record.ended, m_content.now)) + " ago" : "") +
                "</span></summary>\n";
            if (!record.traces.empty()) {
                m_html += "<table><tr><th>State</th><th>Opened</th><th>Open for</th><th>Trace</th></tr>\n";
                for (const Trace& trace : record.traces) {
                    addTrace(trace);
                }
                m_html += "</table>";
            }
            m_html += "</details>\n";
        }
    }

    const PageContent& m_content;
    std::vector<Lane> m_lanes;
    Scale m_scale;
    std::string m_html;
};

}  // namespace

std::string renderPage(const PageContent& content) {
    return Page(content).render();
}

}  // namespace zelctl
