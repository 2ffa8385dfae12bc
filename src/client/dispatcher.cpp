#include "client/dispatcher.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "client/identifiers.h"
#include "client/messages.h"
#include "core/bot_commands.h"
#include "daemon/log.h"

namespace csi_receiver {
namespace {

std::string write_reply(json::document& reply) {
    identifiers_to_numbers(reply);
    return json::write(reply);
}

std::string write_failure(std::string_view reason) {
    json::document reply(rapidjson::kObjectType);
    json::set(reply, "success", json::value(false), reply.GetAllocator());
    json::set(reply, "reason", reason, reply.GetAllocator());
    return write_reply(reply);
}

void set_reason(json::document& message, std::string_view reason) {
    json::set(message, "reason", reason, message.GetAllocator());
}

void set_success(json::document& message) {
    json::set(message, "success", json::value(true), message.GetAllocator());
}

} // namespace

const dispatcher::command dispatcher::commands[] = {
    {"start", &dispatcher::start_bot},
    {"stop", &dispatcher::stop_bot},
    {"associate", &dispatcher::accept},
    {"gssid", &dispatcher::accept},
    {"deregister", &dispatcher::accept},
    {"pair", &dispatcher::accept},
    {"rate", &dispatcher::set_rate},
    {"scan", &dispatcher::request_scan},
    {"bot_info", &dispatcher::report_bot_info},
    {"poll_interval", &dispatcher::set_poll_interval},
    {"disconnect", &dispatcher::disconnect},
    {"version", &dispatcher::report_version},
};

bool dispatcher::parse_msg(const std::string& text, std::string& reply) {
    log_prefix() << "zorvin_client::parse_msg receives: " << text;
    json::document message = json::parse(text);
    if (!message.IsObject()) {
        log_prefix() << "object error: " << text;
        reply = write_failure("Object error");
        return true;
    }
    identifiers_to_text(message, message.GetAllocator());
    bot_record* const bot = select_bot(message);
    if (json::find_string(message, "engineType")) {
        json::document answer = engine_commands_.execute(text, message, bot);
        reply = answer.IsObject() ? write_reply(answer) : write_failure("Engine object error");
        return true;
    }
    const outcome result = execute(message, bot);
    if (result == outcome::reply) {
        reply = write_reply(message);
    }
    return result != outcome::disconnect;
}

bot_record* dispatcher::select_bot(json::document& message) {
    const std::string uuid(json::find_string(message, "bot").value_or(""));
    const auto bot = routing_.find_bot_by_uuid(uuid);
    if (uuid.empty() || bot == routing_.bots().end()) {
        return nullptr;
    }
    json::set(message, "ifname", bot->ifname, message.GetAllocator());
    return &*bot;
}

dispatcher::outcome dispatcher::execute(json::document& message, bot_record* bot) {
    const std::string word(json::find_string(message, "cmd").value_or(""));
    if (word.empty()) {
        set_reason(message, "missing command");
        return outcome::reply;
    }
    json::set(message, "success", json::value(false), message.GetAllocator());
    const auto* const known =
        std::find_if(std::begin(commands), std::end(commands),
                     [&word](const command& candidate) { return candidate.word == word; });
    if (known == std::end(commands)) {
        set_reason(message, "Not supported");
        return outcome::reply;
    }
    return (this->*known->execute)(message, bot);
}

dispatcher::outcome dispatcher::start_bot(json::document& message, bot_record* bot) {
    if (bot == nullptr) {
        set_reason(message, "No Bot selected");
    } else {
        // "success" stays false even when the Bot sounds: kept for compatibility.
        start_sounding(*bot, state_.core_rate());
    }
    return outcome::reply;
}

dispatcher::outcome dispatcher::stop_bot(json::document& message, bot_record* bot) {
    if (bot == nullptr) {
        set_reason(message, "No Bot selected");
    } else {
        stop_sounding(*bot);
        set_success(message);
    }
    return outcome::reply;
}

dispatcher::outcome dispatcher::accept(json::document& message, bot_record* /*bot*/) {
    set_success(message);
    return outcome::reply;
}

dispatcher::outcome dispatcher::set_rate(json::document& message, bot_record* /*bot*/) {
    const std::optional<std::int32_t> rate = json::find_int(message, "rate");
    if (!rate) {
        // A query. "success" stays false: kept for compatibility.
        json::set(message, "rate", json::value(state_.sounding_rate.load()),
                  message.GetAllocator());
    } else if (*rate < 1) {
        set_reason(message, "Value error");
    } else {
        state_.sounding_rate = *rate;
        set_success(message);
    }
    return outcome::reply;
}

dispatcher::outcome dispatcher::request_scan(json::document& /*message*/, bot_record* /*bot*/) {
    scanner_.forget_reported();
    state_.scan_request = true;
    return outcome::no_reply;
}

dispatcher::outcome dispatcher::report_bot_info(json::document& message, bot_record* /*bot*/) {
    json::allocator& memory = message.GetAllocator();
    json::set(message, "bot_info", build_bot_info(scanner_.take_found(), memory), memory);
    set_success(message);
    return outcome::reply;
}

dispatcher::outcome dispatcher::set_poll_interval(json::document& message, bot_record* /*bot*/) {
    const std::optional<std::int32_t> interval = json::find_int(message, "interval");
    if (interval && *interval > 0) {
        pacing_.set_poll_interval(*interval);
        set_success(message);
    }
    return outcome::reply;
}

dispatcher::outcome dispatcher::disconnect(json::document& /*message*/, bot_record* /*bot*/) {
    return outcome::disconnect;
}

dispatcher::outcome dispatcher::report_version(json::document& message, bot_record* /*bot*/) {
    json::set(message, "version", get(settings_, "version"), message.GetAllocator());
    set_success(message);
    return outcome::reply;
}

} // namespace csi_receiver
