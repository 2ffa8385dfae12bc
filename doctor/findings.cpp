#include "doctor/findings.h"

#include <algorithm>
#include <utility>

#include "platform/json.h"

namespace csi_doctor {
namespace {

std::string_view name_of(level severity) {
    return severity == level::ok ? "ok" : severity == level::warn ? "warn" : "FAIL";
}

std::string_view color_of(level severity) {
    return severity == level::ok ? "\x1b[32m" : severity == level::warn ? "\x1b[33m" : "\x1b[1;31m";
}

/// "1 warning", "2 warnings"; empty for none.
std::string count_of(const std::vector<finding>& from, level severity, const std::string& noun) {
    const auto number = std::count_if(from.begin(), from.end(), [severity](const finding& one) {
        return one.severity == severity;
    });
    return number == 0 ? "" : std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

} // namespace

void report::ok(std::string where, std::string what) {
    add({level::ok, std::move(where), std::move(what), {}});
}

void report::warn(std::string where, std::string what, std::string remedy) {
    add({level::warn, std::move(where), std::move(what), std::move(remedy)});
}

void report::fail(std::string where, std::string what, std::string remedy) {
    add({level::fail, std::move(where), std::move(what), std::move(remedy)});
}

void report::add(finding&& found) {
    all_.push_back(std::move(found));
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

std::string printable(std::string_view text) {
    constexpr char digits[] = "0123456789abcdef";
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f) {
            result += c;
        } else {
            result += "\\x";
            result += digits[byte >> 4U];
            result += digits[byte & 0xfU];
        }
    }
    return result;
}

std::string quoted(std::string_view text) {
    return "\"" + printable(text) + "\"";
}

std::string to_line(const finding& from, bool color) {
    std::string name(name_of(from.severity));
    name.resize(4, ' ');
    if (color) {
        name = std::string(color_of(from.severity)) + name + "\x1b[0m";
    }
    return name + "  " + from.where + ": " + from.what +
           (from.remedy.empty() ? "" : " -> " + from.remedy);
}

std::string to_summary(const std::vector<finding>& from) {
    const std::string failures = count_of(from, level::fail, "failure");
    const std::string warnings = count_of(from, level::warn, "warning");
    const char* joint = failures.empty() || warnings.empty() ? "" : ", ";
    const std::string both = failures + joint + warnings;
    return both.empty() ? "all is well" : both;
}

std::string to_json(const std::vector<finding>& from) {
    json::document all(rapidjson::kArrayType);
    json::allocator& memory = all.GetAllocator();
    for (const finding& one : from) {
        json::value object(rapidjson::kObjectType);
        json::set(object, "level", name_of(one.severity), memory);
        json::set(object, "where", one.where, memory);
        json::set(object, "what", one.what, memory);
        json::set(object, "do", one.remedy, memory);
        all.PushBack(object, memory);
    }
    return json::write(all);
}

} // namespace csi_doctor
