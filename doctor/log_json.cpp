#include <algorithm>

#include "doctor/log_report.h"
#include "doctor/text.h"
#include "platform/json.h"

namespace csi_doctor {
namespace {

using json::allocator;
using json::value;

value number(std::size_t count) {
    return value(std::uint64_t{count});
}

/// "2026-11-21T22:14:03Z"
value time_value(const maybe_time& time, allocator& memory) {
    if (!time) {
        return {};
    }
    std::string text = format_time(*time) + "Z";
    text[text.find(' ')] = 'T';
    return json::make_string(text, memory);
}

value seconds_between(const maybe_time& begin, const maybe_time& end) {
    return begin && end ? value(std::max<log_time>(*end - *begin, 0)) : value();
}

/// Bytes that are not ASCII could be invalid in JSON.
value text_value(const std::string& text, allocator& memory) {
    return json::make_string(printable(text), memory);
}

template<class list>
value texts(const list& all, allocator& memory) {
    value array(rapidjson::kArrayType);
    for (const std::string& text : all) {
        array.PushBack(text_value(text, memory), memory);
    }
    return array;
}

value object_of(const line_place& place, allocator& memory) {
    value object(rapidjson::kObjectType);
    json::set(object, "file", text_value(place.path, memory), memory);
    json::set(object, "line", number(place.line), memory);
    json::set(object, "text", text_value(place.text, memory), memory);
    return object;
}

value object_of(const std::optional<line_place>& place, allocator& memory) {
    return place ? object_of(*place, memory) : value();
}

value object_of(const daemon_run& run, allocator& memory) {
    value object(rapidjson::kObjectType);
    json::set(object, "begin", time_value(run.begin, memory), memory);
    json::set(object, "end", time_value(run.end, memory), memory);
    json::set(object, "version", text_value(run.version, memory), memory);
    json::set(object, "bots", texts(run.bots, memory), memory);
    json::set(object, "how", run.how.empty() ? value() : text_value(run.how, memory), memory);
    json::set(object, "expected", value(run.expected), memory);
    json::set(object, "doubtful", value(run.doubtful), memory);
    return object;
}

value object_of(const outage& one, allocator& memory) {
    value object(rapidjson::kObjectType);
    json::set(object, "begin", time_value(one.begin, memory), memory);
    json::set(object, "end", time_value(one.end, memory), memory);
    json::set(object, "seconds", seconds_between(one.begin, one.end), memory);
    json::set(object, "reason", text_value(one.reason, memory), memory);
    json::set(object, "attached_again", value(one.over), memory);
    json::set(object, "doubtful", value(one.doubtful), memory);
    return object;
}

value object_of(const logged_scan& scan, allocator& memory) {
    value object(rapidjson::kObjectType);
    json::set(object, "begin", time_value(scan.begin, memory), memory);
    json::set(object, "end", time_value(scan.end, memory), memory);
    json::set(object, "seconds", seconds_between(scan.begin, scan.end), memory);
    json::set(object, "hwaddrs", texts(scan.hwaddrs, memory), memory);
    json::set(object, "found", texts(scan.found, memory), memory);
    json::set(object, "doubtful", value(scan.doubtful), memory);
    return object;
}

void set_occurrences(value& object, const occurrences& all, allocator& memory) {
    json::set(object, "count", number(all.count), memory);
    json::set(object, "doubtful", number(all.doubtful), memory);
    json::set(object, "first", time_value(all.first, memory), memory);
    json::set(object, "last", time_value(all.last, memory), memory);
}

value object_of(const std::pair<const command_kind, occurrences>& one, allocator& memory) {
    const auto& [kind, all] = one;
    value object(rapidjson::kObjectType);
    json::set(object, "cmd", text_value(kind.cmd, memory), memory);
    json::set(object, "engine", kind.engine.empty() ? value() : text_value(kind.engine, memory),
              memory);
    set_occurrences(object, all, memory);
    return object;
}

value object_of(const std::pair<const failure_kind, occurrences>& one, allocator& memory) {
    const auto& [kind, all] = one;
    value object(rapidjson::kObjectType);
    json::set(object, "peer", text_value(kind.peer, memory), memory);
    json::set(object, "what", text_value(kind.what, memory), memory);
    set_occurrences(object, all, memory);
    return object;
}

template<class list>
value array_of(const list& all, allocator& memory) {
    value array(rapidjson::kArrayType);
    for (const auto& one : all) {
        array.PushBack(object_of(one, memory), memory);
    }
    return array;
}

value describe_log(const log_history& history, allocator& memory) {
    value object(rapidjson::kObjectType);
    json::set(object, "begin", time_value(history.begin, memory), memory);
    json::set(object, "end", time_value(history.end, memory), memory);
    json::set(object, "files", number(history.files), memory);
    json::set(object, "lines", number(history.lines), memory);
    json::set(object, "missing", texts(history.missing, memory), memory);
    json::set(object, "clock_went_back", number(history.backward_steps), memory);
    return object;
}

const char* name_of(attachment state) {
    constexpr const char* names[] = {"unknown",  "stopped", "starting",
                                     "attached", "outage",  "disconnected"};
    return names[static_cast<std::size_t>(state)];
}

value describe_state(const log_history& history, allocator& memory) {
    value object(rapidjson::kObjectType);
    const bool known = !history.states.empty();
    json::set(object, "name", name_of(history.state()), memory);
    json::set(object, "since", known ? time_value(history.states.back().begin, memory) : value(),
              memory);
    json::set(object, "doubtful", value(known && history.states.back().doubtful), memory);
    return object;
}

value describe_lines(std::size_t count, value&& first, allocator& memory) {
    value object(rapidjson::kObjectType);
    json::set(object, "count", number(count), memory);
    json::set(object, "first", std::move(first), memory);
    return object;
}

} // namespace

std::string to_json(const log_history& history) {
    json::document all(rapidjson::kObjectType);
    allocator& memory = all.GetAllocator();
    json::set(all, "log", describe_log(history, memory), memory);
    json::set(all, "state", describe_state(history, memory), memory);
    json::set(all, "runs", array_of(history.runs, memory), memory);
    json::set(all, "outages", array_of(history.outages, memory), memory);
    json::set(all, "commands", array_of(history.commands, memory), memory);
    json::set(all, "failures", array_of(history.failures, memory), memory);
    json::set(all, "scans", array_of(history.scans, memory), memory);
    json::set(
        all, "unknown",
        describe_lines(history.unknown_lines, array_of(history.first_unknown, memory), memory),
        memory);
    json::set(all, "quoted",
              describe_lines(history.quoted_lines, object_of(history.first_quoted, memory), memory),
              memory);
    json::set(
        all, "doubtful",
        describe_lines(history.doubtful_lines, object_of(history.first_doubtful, memory), memory),
        memory);
    return json::write(all);
}

} // namespace csi_doctor
