#include "soak/record.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/json.h"

namespace csi_soak {
namespace {

using lock = std::lock_guard<std::mutex>;

bool begins_with(std::string_view text, std::string_view begin) {
    return text.substr(0, begin.size()) == begin;
}

/// What stands between `begin` and `end`, if the text is made of these three.
std::optional<std::string> between(const std::string& text, const std::string& begin,
                                   const std::string& end) {
    const bool fits = text.size() >= begin.size() + end.size() && begins_with(text, begin) &&
                      text.compare(text.size() - end.size(), end.size(), end) == 0;
    if (!fits) {
        return std::nullopt;
    }
    return text.substr(begin.size(), text.size() - begin.size() - end.size());
}

} // namespace

soak_record::soak_record(soak_report& report, std::vector<soak_bot> bots, std::string attach_answer)
    : report_(report)
    , bots_(std::move(bots))
    , attach_answer_(std::move(attach_answer)) {}

void soak_record::plan(soak_command command) {
    const lock held(mutex_);
    planned_.push_back(std::move(command));
}

void soak_record::see(const peers::message& what) {
    const lock held(mutex_);
    if (what.from == "server") {
        hand_out(what.text);
    } else if (what.from == "daemon" && what.to == "server") {
        if (begins_with(what.text, R"({"type":"zorvin")")) {
            take_attach(what.text);
        } else if (what.text.back() == '\n') {
            take_unasked(what.text.substr(0, what.text.size() - 1));
        } else {
            take_reply(what.text);
        }
    }
}

void soak_record::hand_out(const std::string& text) {
    close_open();
    soak_command command = {"attach", text, R"({"cmd":"associate","success":true})", {}, {}, {}};
    if (text != attach_answer_) {
        if (planned_.empty() || planned_.front().text != text) {
            report_.violation("the lab", "handed out what was not planned: " + text);
            return;
        }
        command = std::move(planned_.front());
        planned_.pop_front();
    }
    ++counts_.handed_out;
    counts_.excused += excusing_ ? 1 : 0;
    if (command.kind == "disconnect") {
        ++counts_.disconnects;
        counts_.attached = false;
    }
    if (!command.expected.empty()) {
        open_ = open_command{std::move(command), soak_clock::now(), excusing_};
    }
}

/// The daemon has come for the next command, so the one before will not be answered any more.
void soak_record::close_open() {
    if (!open_) {
        return;
    }
    if (!open_->excused) {
        report_.violation("no command is lost", open_->command.text);
    }
    ++counts_.lost;
    if (open_->command.sets_rate) {
        possible_rates_.insert(*open_->command.sets_rate);
    }
    open_.reset();
}

void soak_record::take_attach(const std::string& text) {
    ++counts_.attaches;
    counts_.attached = true;
    const json::document parsed = json::parse(text);
    const bool is_object = parsed.IsObject();
    const std::string version(is_object ? json::find_string(parsed, "version").value_or("")
                                        : std::string_view());
    report_.violation_unless(!version.empty() && (version_.empty() || version == version_),
                             "every message is right", text);
    version_ = version;
}

void soak_record::take_unasked(const std::string& text) {
    if (text.find(R"("cmd":"scan")") != std::string::npos) {
        ++counts_.scan_reports;
        const json::document parsed = json::parse(text);
        const json::value* found = parsed.IsObject() ? json::find(parsed, "found") : nullptr;
        const bool right = found != nullptr && found->IsArray() && found->Size() <= bots_.size() &&
                           text.find(R"("success":true,"reason":"complete")") != std::string::npos;
        report_.violation_unless(right, "every message is right", text);
        return;
    }
    ++counts_.status_messages;
    const std::string begin = begins_with(text, R"({"request")")
                                  ? R"({"request":"zorvinMsg","zorvin":9001,"bot_info":[)"
                                  : R"({"bot_info":[)";
    report_.violation_unless(is_bot_list(text, begin, "]}"), "every message is right", text);
}

void soak_record::take_reply(const std::string& text) {
    const bool in_fault = open_ ? open_->excused : excusing_;
    if (in_fault && text == object_error && !(open_ && open_->command.expected == text)) {
        // What is left of a body that was cut is no JSON. The command in it is lost.
        ++counts_.cut;
        close_open();
        return;
    }
    if (!open_) {
        report_.violation("no command is answered twice", text);
        return;
    }
    const open_command answered = *std::exchange(open_, std::nullopt);
    const std::string& peer = answered.command.engine_peer;
    if (!peer.empty() && text == engine_error && peer_failed_since(peer, answered.since)) {
        ++counts_.engine_errors;
    } else if (!is_right(answered.command, text)) {
        report_.violation("every reply is right", answered.command.text + " got " + text +
                                                      " instead of " + answered.command.expected);
    }
    if (answered.command.sets_rate) {
        possible_rates_ = {*answered.command.sets_rate};
    }
    note_answer(answered);
}

void soak_record::note_answer(const open_command& answered) {
    ++counts_.replies;
    ++replies_[answered.command.kind];
    const soak_clock::duration took = soak_clock::now() - answered.since;
    if (!answered.excused && took > counts_.longest_answer) {
        counts_.longest_answer = took;
        counts_.longest_kind = answered.command.kind;
    }
}

bool soak_record::is_right(const soak_command& command, const std::string& reply) const {
    if (command.gap == soak_gap::none) {
        return reply == command.expected;
    }
    const std::size_t gap = command.expected.find(soak_gap_mark);
    const std::string begin = command.expected.substr(0, gap);
    const std::string end = command.expected.substr(gap + 1);
    const auto filling = between(reply, begin, end);
    return filling && fills(command.gap, *filling);
}

bool soak_record::fills(soak_gap gap, const std::string& text) const {
    switch (gap) {
    case soak_gap::none:
        return false;
    case soak_gap::version:
        return text == version_;
    case soak_gap::rate:
        return std::any_of(possible_rates_.begin(), possible_rates_.end(),
                           [&](int rate) { return text == std::to_string(rate); });
    case soak_gap::bot_info:
        return is_bot_list(text, "", "");
    case soak_gap::engine_state:
        return text == "running" || text == "stopped";
    }
    return false;
}

/// Whether a list of some of the Bots, in the order of the routing, stands between the two.
bool soak_record::is_bot_list(const std::string& text, const std::string& begin,
                              const std::string& end) const {
    const auto list = between(text, begin, end);
    std::string rest = list ? *list : "wrong";
    for (const soak_bot& bot : bots_) {
        const std::string entry =
            R"({"bot":)" + bot.id + R"(,"hwaddr":")" + bot.hwaddr + R"(","chains":1})";
        if (begins_with(rest, entry)) {
            rest.erase(0, entry.size());
            rest.erase(0, rest.size() > 1 && rest.front() == ',' ? 1 : 0);
        }
    }
    return rest.empty();
}

void soak_record::begin_excuse() {
    const lock held(mutex_);
    excusing_ = true;
    if (open_ && !open_->excused) {
        open_->excused = true;
        ++counts_.excused;
    }
}

void soak_record::end_excuse() {
    const lock held(mutex_);
    excusing_ = false;
}

void soak_record::begin_peer_fault(const std::string& peer) {
    const lock held(mutex_);
    fault_ends_[peer] = soak_clock::time_point::max();
}

void soak_record::end_peer_fault(const std::string& peer) {
    const lock held(mutex_);
    fault_ends_[peer] = soak_clock::now();
}

bool soak_record::peer_failed_since(const std::string& peer, soak_clock::time_point since) const {
    const auto found = fault_ends_.find(peer);
    return found != fault_ends_.end() && found->second >= since;
}

soak_record::counts soak_record::count() const {
    const lock held(mutex_);
    return counts_;
}

std::map<std::string, std::size_t> soak_record::replies_by_kind() const {
    const lock held(mutex_);
    return replies_;
}

bool soak_record::owes_reply() const {
    const lock held(mutex_);
    return open_ && !open_->excused;
}

} // namespace csi_soak
