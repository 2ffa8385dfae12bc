#include "soak/conversation.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/json.h"

namespace csi_soak {
namespace {

using lock_guard = std::lock_guard<std::mutex>;

constexpr const char* message_check = "every message is correct";

bool starts_with(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

/// What is between `start` and `end`; nullopt unless the text starts and ends with these.
std::optional<std::string> between(const std::string& text, const std::string& start,
                                   const std::string& end) {
    const bool matches = text.size() >= start.size() + end.size() && starts_with(text, start) &&
                         text.compare(text.size() - end.size(), end.size(), end) == 0;
    if (!matches) {
        return std::nullopt;
    }
    return text.substr(start.size(), text.size() - start.size() - end.size());
}

std::string version_in(const std::string& attach) {
    const json::document parsed = json::parse(attach);
    const auto version = parsed.IsObject() ? json::find_string(parsed, "version") : std::nullopt;
    return std::string(version.value_or(""));
}

} // namespace

conversation_checker::conversation_checker(reporter& report, std::vector<peers::routed_bot> bots,
                                           std::string attach_answer)
    : report_(report)
    , bots_(std::move(bots))
    , attach_answer_(std::move(attach_answer)) {}

void conversation_checker::plan(test_command command) {
    const lock_guard lock(mutex_);
    planned_.push_back(std::move(command));
}

void conversation_checker::observe(const peers::message& message) {
    const lock_guard lock(mutex_);
    if (message.from == "server") {
        handle_command(message.text);
    } else if (message.from == "daemon" && message.to == "server") {
        if (starts_with(message.text, R"({"type":"zorvin")")) {
            handle_attach(message.text);
        } else if (message.text.back() == '\n') {
            handle_unsolicited(message.text.substr(0, message.text.size() - 1));
        } else {
            handle_reply(message.text);
        }
    }
}

void conversation_checker::handle_command(const std::string& text) {
    close_open_command();
    std::optional<test_command> command = take_planned(text);
    if (!command) {
        report_.fail("the server hands out planned commands only", text);
        return;
    }
    ++counts_.commands;
    counts_.excused += excusing_ ? 1 : 0;
    if (command->kind == "disconnect") {
        ++counts_.disconnects;
        counts_.attached = false;
    }
    if (!command->expected.empty()) {
        open_ = open_command{std::move(*command), steady_clock::now(), excusing_};
    }
}

std::optional<test_command> conversation_checker::take_planned(const std::string& text) {
    if (text == attach_answer_) {
        const std::string reply = text.substr(0, text.size() - 1) + R"(,"success":true})";
        return test_command{"attach", text, reply, {}, {}, {}};
    }
    if (planned_.empty() || planned_.front().text != text) {
        return std::nullopt;
    }
    test_command command = std::move(planned_.front());
    planned_.pop_front();
    return command;
}

/// The daemon has asked for the next command, so the open one will never be answered.
void conversation_checker::close_open_command() {
    if (!open_) {
        return;
    }
    if (!open_->excused) {
        ++counts_.lost_unexcused;
        if (report_losses_) {
            report_.fail("no command is lost", open_->command.text);
        }
    }
    ++counts_.lost;
    if (open_->command.sets_rate) {
        possible_rates_.insert(*open_->command.sets_rate);
    }
    open_.reset();
}

void conversation_checker::handle_attach(const std::string& text) {
    ++counts_.attaches;
    counts_.attached = true;
    const std::string version = version_in(text);
    const bool unchanged = version_.empty() || version == version_;
    report_.expect(!version.empty() && unchanged, message_check, text);
    version_ = version;
}

void conversation_checker::handle_unsolicited(const std::string& text) {
    if (contains(text, R"("cmd":"scan")")) {
        ++counts_.scan_reports;
        report_.expect(is_scan_report(text), message_check, text);
        return;
    }
    ++counts_.status_messages;
    const std::string start = starts_with(text, R"({"request")")
                                  ? R"({"request":"zorvinMsg","zorvin":9001,"bot_info":[)"
                                  : R"({"bot_info":[)";
    const std::optional<std::string> list = between(text, start, "]}");
    report_.expect(list && is_bot_list(*list), message_check, text);
}

bool conversation_checker::is_scan_report(const std::string& text) const {
    const json::document parsed = json::parse(text);
    const json::value* found = parsed.IsObject() ? json::find(parsed, "found") : nullptr;
    return found != nullptr && found->IsArray() && found->Size() <= bots_.size() &&
           contains(text, R"("success":true,"reason":"complete")");
}

void conversation_checker::handle_reply(const std::string& text) {
    const bool excused = open_ ? open_->excused : excusing_;
    if (excused && text == object_error && !(open_ && open_->command.expected == text)) {
        // The reply to the first half of a command. The command itself is lost.
        close_open_command();
        return;
    }
    if (!open_) {
        report_.fail("no command is answered twice", text);
        return;
    }
    const open_command answered = *std::exchange(open_, std::nullopt);
    check_reply(answered, text);
    if (answered.command.sets_rate) {
        possible_rates_ = {*answered.command.sets_rate};
    }
    count_reply(answered);
}

void conversation_checker::check_reply(const open_command& answered, const std::string& reply) {
    const test_command& command = answered.command;
    const bool engine_may_fail =
        !command.engine_peer.empty() && peer_failed_since(command.engine_peer, answered.since);
    if (engine_may_fail && reply == engine_error) {
        ++counts_.engine_errors;
        return;
    }
    report_.expect(is_expected(command, reply), "every reply is correct",
                   command.text + " got " + reply + " instead of " + command.expected);
}

void conversation_checker::count_reply(const open_command& answered) {
    ++counts_.replies;
    ++replies_[answered.command.kind];
    const steady_clock::duration time = steady_clock::now() - answered.since;
    if (!answered.excused && time > counts_.longest_answer) {
        counts_.longest_answer = time;
        counts_.slowest_kind = answered.command.kind;
    }
}

bool conversation_checker::is_expected(const test_command& command,
                                       const std::string& reply) const {
    if (command.variable == variable_part::none) {
        return reply == command.expected;
    }
    const std::size_t mark = command.expected.find(variable_part_mark);
    const auto part =
        between(reply, command.expected.substr(0, mark), command.expected.substr(mark + 1));
    return part && is_valid(command.variable, *part);
}

bool conversation_checker::is_valid(variable_part part, const std::string& text) const {
    switch (part) {
    case variable_part::none:
        return false;
    case variable_part::version:
        return text == version_;
    case variable_part::rate:
        return std::any_of(possible_rates_.begin(), possible_rates_.end(),
                           [&](int rate) { return text == std::to_string(rate); });
    case variable_part::bot_info:
        return is_bot_list(text);
    case variable_part::engine_state:
        return text == "running" || text == "stopped";
    }
    return false;
}

/// Some of the Bots, in the order of the routing.
bool conversation_checker::is_bot_list(const std::string& text) const {
    std::string rest = text;
    for (const peers::routed_bot& bot : bots_) {
        const std::string entry =
            R"({"bot":)" + bot.uuid + R"(,"hwaddr":")" + bot.hwaddr + R"(","chains":1})";
        if (starts_with(rest, entry)) {
            rest.erase(0, entry.size());
            rest.erase(0, rest.size() > 1 && rest.front() == ',' ? 1 : 0);
        }
    }
    return rest.empty();
}

void conversation_checker::begin_excusing() {
    const lock_guard lock(mutex_);
    excusing_ = true;
    if (open_ && !open_->excused) {
        open_->excused = true;
        ++counts_.excused;
    }
}

void conversation_checker::end_excusing() {
    const lock_guard lock(mutex_);
    excusing_ = false;
}

void conversation_checker::leave_losses_to_caller() {
    const lock_guard lock(mutex_);
    report_losses_ = false;
}

void conversation_checker::begin_peer_fault(const std::string& peer) {
    const lock_guard lock(mutex_);
    fault_ends_[peer] = steady_clock::time_point::max();
}

void conversation_checker::end_peer_fault(const std::string& peer) {
    const lock_guard lock(mutex_);
    fault_ends_[peer] = steady_clock::now();
}

bool conversation_checker::peer_failed_since(const std::string& peer,
                                             steady_clock::time_point since) const {
    const auto end = fault_ends_.find(peer);
    return end != fault_ends_.end() && end->second >= since;
}

conversation_checker::counters conversation_checker::counts() const {
    const lock_guard lock(mutex_);
    return counts_;
}

std::map<std::string, std::size_t> conversation_checker::replies_by_kind() const {
    const lock_guard lock(mutex_);
    return replies_;
}

bool conversation_checker::awaiting_reply() const {
    const lock_guard lock(mutex_);
    return open_ && !open_->excused;
}

} // namespace csi_soak
