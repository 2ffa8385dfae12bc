#include "lab/judge.h"

#include <iostream>
#include <string_view>
#include <utility>

#include "contract/exchange.h"
#include "contract/judge.h"

namespace csi_lab {
namespace {

constexpr int first_error_status = 400;

std::string escaped(std::string_view text) {
    constexpr std::size_t max_shown = 500;
    std::string result;
    for (const char c : text.substr(0, max_shown)) {
        const auto code = static_cast<unsigned char>(c);
        result += c == '\n' ? "\\n" : code < 0x20 || code == 0x7f ? "?" : std::string(1, c);
    }
    return result + (text.size() > max_shown ? " ..." : "");
}

/// The rule about the status that no schema can express. What it wants, or empty.
std::string broken_rule(const entry& what, bool is_executed) {
    const bool is_page = what.from == "server" && is_executed && what.status >= first_error_status;
    return is_page ? "an empty body with status " + std::to_string(what.status) +
                         ": the daemon takes the body for a command"
                   : "";
}

bool is_reply_without_command(const contract::kind& what) {
    return what.family == "reply" && what.message.empty();
}

std::string route(const entry& what) {
    const std::string peer = peer_of(what);
    return what.from == "daemon" ? "daemon -> " + peer : peer + " -> daemon";
}

} // namespace

std::vector<std::string> describe(const finding& what) {
    const std::string place = what.member.empty() ? "the message" : what.member;
    const std::string line = what.line == 0 ? "" : "line " + std::to_string(what.line) + ": ";
    return {line + what.message + ": " + place + " must be " + what.wanted +
                (what.fatal ? "; ends the daemon" : ""),
            "    " + escaped(what.text)};
}

std::vector<finding> judge::next(const entry& what) {
    latest_request_ = pairing_.request_of(what);
    const auto& request = latest_request_;
    latest_kind_.clear();
    if (!what.event.empty()) {
        return {};
    }
    ++messages_;
    contract::exchange exchange;
    exchange.from = what.from;
    exchange.to = what.to;
    exchange.text = what.text;
    exchange.request = request ? request->text : "";
    exchange.method = what.method;
    exchange.path = what.path;
    const contract::kind kind = contract::classify(exchange);
    latest_kind_ = contract::name_of(kind);
    const std::string message = route(what) + "  " + latest_kind_;
    std::vector<finding> result;
    for (contract::breach& breach : contract::judge(kind, what.text)) {
        fatal_ += breach.fatal ? 1U : 0U;
        result.push_back({what.line, message, std::move(breach.path), std::move(breach.wanted),
                          breach.fatal, what.text});
    }
    std::string rule = broken_rule(what, !kind.family.empty());
    if (is_reply_without_command(kind) && server_spoke_ && what.text != latest_reply_) {
        rule = "absent: no command awaits a reply";
    }
    server_spoke_ = server_spoke_ || what.from == "server";
    latest_reply_ = kind.family == "reply" ? what.text : latest_reply_;
    if (!rule.empty()) {
        result.push_back({what.line, message, "", std::move(rule), false, what.text});
    }
    breaches_ += result.size();
    return result;
}

std::string judge::summary() const {
    const std::string count = breaches_ == 0   ? "no breach"
                              : breaches_ == 1 ? "1 breach"
                                               : std::to_string(breaches_) + " breaches";
    const std::string fatal = fatal_ == 0
                                  ? ""
                                  : ", of which " + std::to_string(fatal_) +
                                        (fatal_ == 1 ? " ends the daemon" : " end the daemon");
    return count + " in " + std::to_string(messages_) + " messages" + fatal;
}

int judge_recording(const std::string& path) {
    judge by;
    for (const entry& what : read_recording(path)) {
        for (const finding& found : by.next(what)) {
            for (const std::string& line : describe(found)) {
                std::cout << line << '\n';
            }
        }
    }
    std::cout << by.summary() << std::endl;
    return by.breaches() == 0 ? 0 : 1;
}

} // namespace csi_lab
