// SPDX-License-Identifier: Apache-2.0
#include "Changes.h"

#include <json/json.h>

#include <array>
#include <cstdio>
#include <ctime>

#include "Text.h"

namespace zelctl {

namespace {

Change sessionChange(const char* what, const std::string& id, const Holder& holder) {
    return {"session",
            what,
            std::string(what) + ' ' + sessionText(id, holder),
            {{"id", id}, {"holder", kindOf(id)}, {"program", holder.program}, {"pid", holder.pid}}};
}

std::string stateOf(const std::optional<Unit>& unit) {
    if (!unit) {
        return "unknown";
    }
    std::string state = unit->active + " (" + unit->sub + ')';
    if (unit->pid != 0) {
        state += ", process " + std::to_string(unit->pid);
    }
    return state;
}

const char* wordFor(const Marker& marker, bool isNew) {
    if (!marker.isPresent) {
        return isNew ? "absent" : "gone";
    }
    return marker.problem.empty() ? "there" : "wrong";
}

std::string formatted(const char* format, std::uint64_t time, const char* fractionFormat,
                      std::uint64_t fraction, bool local) {
    const auto seconds = static_cast<std::time_t>(time / 1'000'000);
    std::tm parts{};
    if (local) {
        localtime_r(&seconds, &parts);
    } else {
        gmtime_r(&seconds, &parts);
    }
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), format, &parts);
    std::array<char, 32> rest{};
    std::snprintf(rest.data(), rest.size(), fractionFormat, static_cast<unsigned long long>(fraction));
    return std::string(text.data()) + rest.data();
}

}  // namespace

std::vector<Change> sessionChanges(const std::optional<Sessions>& before, const Sessions& now) {
    std::vector<Change> changes;
    const Sessions known = before.value_or(Sessions());
    for (const auto& [id, holder] : known) {
        if (now.count(id) == 0) {
            changes.push_back(sessionChange("closed", id, holder));
        }
    }
    for (const auto& [id, holder] : now) {
        if (known.count(id) == 0) {
            changes.push_back(sessionChange(before ? "opened" : "open", id, holder));
        }
    }
    return changes;
}

std::vector<Change> markerChanges(const std::vector<Marker>& before, const std::vector<Marker>& now) {
    std::vector<Change> changes;
    for (std::size_t i = 0; i < now.size(); ++i) {
        const Marker& marker = now[i];
        const bool isNew = i >= before.size();
        if (isNew || before[i].isPresent != marker.isPresent || before[i].problem != marker.problem) {
            const char* const word = wordFor(marker, isNew);
            changes.push_back(
                {"marker",
                 word,
                 marker.path + " is " + word + (marker.problem.empty() ? "" : ": " + marker.problem),
                 {{"path", marker.path}, {"means", marker.meaning}, {"problem", marker.problem}}});
        }
    }
    return changes;
}

std::vector<Change> unitChanges(const std::string& kind, const std::optional<Unit>& before,
                                const std::optional<Unit>& now) {
    if (stateOf(before) == stateOf(now)) {
        return {};
    }
    Change change{kind, now ? now->active : "unknown", stateOf(now), {}};
    if (now) {
        change.details = {{"unit", now->name}, {"sub", now->sub}, {"pid", std::to_string(now->pid)}};
    }
    return {change};
}

std::vector<Change> logChanges(const Event& event) {
    const bool isSession = event.kind == EventKind::Opened || event.kind == EventKind::Closed;
    // The table of sessions tells.
    if ((isSession && event.values[0] == "1") || event.kind == EventKind::WindowGone) {
        return {};
    }
    Change change{"log", wordFor(event.kind), eventText(event), {}};
    if (event.kind == EventKind::Trigger) {
        change.kind = "trigger";
        change.details = {{"trigger", event.values[4]}, {"name", triggerName(event.values[4])}};
    }
    return {change};
}

std::string changeText(const Change& change, std::uint64_t time) {
    return formatted("%H:%M:%S", time, ".%03llu", time % 1'000'000 / 1000, true) + "  " + change.kind +
           std::string(change.kind.size() < 9 ? 9 - change.kind.size() : 1, ' ') + printable(change.text) +
           '\n';
}

std::string changeJson(const Change& change, std::uint64_t time) {
    Json::Value json;
    json["time"] = formatted("%Y-%m-%dT%H:%M:%S", time, ".%06lluZ", time % 1'000'000, false);
    json["kind"] = change.kind;
    json["what"] = change.what;
    json["text"] = change.text;
    for (const auto& [name, value] : change.details) {
        json[name] = value;
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, json) + '\n';
}

}  // namespace zelctl
