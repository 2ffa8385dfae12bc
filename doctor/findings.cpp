#include "doctor/findings.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "doctor/text.h"
#include "platform/json.h"

namespace csi_doctor {
namespace {

std::string_view name_of(level severity) {
    return severity == level::ok ? "ok" : severity == level::warn ? "warn" : "FAIL";
}

std::string_view color_of(level severity) {
    return severity == level::ok ? "\x1b[32m" : severity == level::warn ? "\x1b[33m" : "\x1b[1;31m";
}

std::size_t count(const std::vector<finding>& findings, level severity) {
    const auto matches = [severity](const finding& one) { return one.severity == severity; };
    return static_cast<std::size_t>(std::count_if(findings.begin(), findings.end(), matches));
}

json::value number_or_null(std::size_t number) {
    return number == 0 ? json::value() : json::value(std::uint64_t{number});
}

json::value key_or_null(const std::string& key, json::allocator& memory) {
    return key.empty() ? json::value() : json::make_string(key, memory);
}

} // namespace

void report::ok(finding_code code, place where, std::string what) {
    add({level::ok, code, std::move(where), std::move(what), {}});
}

void report::warn(finding_code code, place where, std::string what, std::string remedy) {
    add({level::warn, code, std::move(where), std::move(what), std::move(remedy)});
}

void report::fail(finding_code code, place where, std::string what, std::string remedy) {
    add({level::fail, code, std::move(where), std::move(what), std::move(remedy)});
}

void report::add(finding made) {
    all_.push_back(std::move(made));
    if (on_finding_) {
        on_finding_(all_.back());
    }
}

int report::exit_status() const {
    level worst = level::ok;
    for (const finding& one : all_) {
        worst = std::max(worst, one.severity);
    }
    return static_cast<int>(worst);
}

std::string to_line(const finding& made, bool color) {
    std::string name(name_of(made.severity));
    name.resize(4, ' ');
    if (color) {
        name = std::string(color_of(made.severity)) + name + "\x1b[0m";
    }
    const std::string remedy = made.remedy.empty() ? "" : " -> " + made.remedy;
    return name + "  " + made.where.text + ": " + made.what + remedy;
}

std::string to_summary(const std::vector<finding>& findings) {
    const std::size_t failures = count(findings, level::fail);
    const std::size_t warnings = count(findings, level::warn);
    if (failures == 0 && warnings == 0) {
        return "all is well";
    }
    if (failures == 0) {
        return counted(warnings, "warning");
    }
    return counted(failures, "failure") +
           (warnings == 0 ? "" : ", " + counted(warnings, "warning"));
}

std::string to_json(const std::vector<finding>& findings) {
    json::document all(rapidjson::kArrayType);
    json::allocator& memory = all.GetAllocator();
    for (const finding& one : findings) {
        json::value object(rapidjson::kObjectType);
        json::set(object, "level", name_of(one.severity), memory);
        json::set(object, "where", one.where.text, memory);
        json::set(object, "what", one.what, memory);
        json::set(object, "do", one.remedy, memory);
        json::set(object, "code", one.code.name, memory);
        json::set(object, "line", number_or_null(one.where.line), memory);
        json::set(object, "key", key_or_null(one.where.key, memory), memory);
        json::set(object, "item", number_or_null(one.where.item), memory);
        all.PushBack(object, memory);
    }
    return json::write(all);
}

} // namespace csi_doctor
