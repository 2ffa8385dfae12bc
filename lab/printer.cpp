#include "lab/printer.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <utility>

#include "platform/json.h"

namespace csi_lab {
namespace {

std::string label_of_post(const std::string& text) {
    const json::document parsed = json::parse(text);
    if (!parsed.IsObject()) {
        return "reply";
    }
    const auto command = json::find_string(parsed, "cmd");
    if (json::find_string(parsed, "request") == "zorvinAttach" ||
        json::find_string(parsed, "type") == "zorvin") {
        return "attach";
    }
    if (command == "scan" && json::find(parsed, "found") != nullptr) {
        return "scan report";
    }
    if (!command && json::find(parsed, "bot_info") != nullptr) {
        return "status";
    }
    return "reply";
}

std::string local_time(std::chrono::system_clock::time_point when) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
    const auto fraction = when - std::chrono::system_clock::from_time_t(seconds);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(fraction).count();
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min,
                  parts.tm_sec, static_cast<int>(ms));
    return text.data();
}

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (code >= 0x20 && code != 0x7f) {
            result += c;
            continue;
        }
        std::array<char, 8> escape{};
        std::snprintf(escape.data(), escape.size(), "\\x%02x", unsigned{code});
        result += c == '\n' ? "\\n" : escape.data();
    }
    return result;
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

/// The escape sequence for the color of the peer that talks to the daemon.
const char* color_of(const peers::message& what) {
    const std::string& peer = what.from == "daemon" ? what.to : what.from;
    if (peer == "log") {
        return "\x1b[90m";
    }
    if (peer == "server") {
        return "\x1b[36m";
    }
    if (peer == "fusion") {
        return "\x1b[35m";
    }
    return peer == "lab" ? "\x1b[33m" : "\x1b[32m";
}

} // namespace

std::string label_of(const peers::message& what) {
    if (what.to == "log") {
        return "log";
    }
    if (what.from == "lab") {
        return "remark";
    }
    if (what.from == "server") {
        return "command";
    }
    if (what.to == "server") {
        return label_of_post(what.text);
    }
    return what.to == "daemon" ? "reply" : "request";
}

std::string format_line(const peers::message& what, bool color) {
    constexpr std::size_t peer_width = 16; // "core 127.0.0.250"
    constexpr std::size_t label_width = 11;
    std::string_view text = what.text;
    if (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1); // all unsolicited messages end with a line end
    }
    return local_time(what.when) + "  " + (color ? color_of(what) : "") +
           padded(what.from, peer_width) + " -> " + padded(what.to, peer_width) + "  " +
           padded(label_of(what), label_width) + (color ? "\x1b[0m" : "") + "  " + escaped(text);
}

printer::printer(bool color, bool json)
    : color_(color)
    , json_(json) {}

void printer::show(const peers::message& what) {
    const std::lock_guard<std::mutex> lock(mutex_);
    write(format_line(what, color_));
}

void printer::show_json(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

void printer::say(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    write(line);
    if (copy_) {
        copy_(line);
    }
}

void printer::write(const std::string& line) {
    if (sink_) {
        sink_(line);
        return;
    }
    std::FILE* const stream = json_ ? stderr : stdout;
    std::fputs((line + "\n").c_str(), stream);
    std::fflush(stream);
}

void printer::redirect(sink to) {
    const std::lock_guard<std::mutex> lock(mutex_);
    sink_ = std::move(to);
}

void printer::copy(sink to) {
    const std::lock_guard<std::mutex> lock(mutex_);
    copy_ = std::move(to);
}

} // namespace csi_lab
