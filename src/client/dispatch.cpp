// The server's commands: what each message asks for, and the answer.
#include <algorithm>

#include "client/identifiers.h"
#include "client/zorvin_client.h"
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

void give_reason(json::document& message, std::string_view reason) {
    json::set(message, "reason", reason, message.GetAllocator());
}

void tell_success(json::document& message) {
    json::set(message, "success", json::value(true), message.GetAllocator());
}

} // namespace

const zorvin_client::command zorvin_client::commands[] = {
    {"start", &zorvin_client::start_bot},
    {"stop", &zorvin_client::stop_bot},
    {"associate", &zorvin_client::accept},
    {"gssid", &zorvin_client::accept},
    {"deregister", &zorvin_client::accept},
    {"pair", &zorvin_client::accept},
    {"rate", &zorvin_client::set_rate},
    {"scan", &zorvin_client::request_scan},
    {"bot_info", &zorvin_client::tell_bot_info},
    {"poll_interval", &zorvin_client::set_poll_interval},
    {"disconnect", &zorvin_client::disconnect},
    {"version", &zorvin_client::tell_version},
};

bool zorvin_client::parse_msg(const std::string& text, std::string& reply) {
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
        json::document answer = carry_out_engine_command(text, message, bot);
        reply = answer.IsObject() ? write_reply(answer) : write_failure("Engine object error");
        return true;
    }
    const outcome result = carry_out_command(message, bot);
    if (result == outcome::reply) {
        reply = write_reply(message);
    }
    return result != outcome::disconnect;
}

bot_record* zorvin_client::select_bot(json::document& message) {
    const std::string uuid(json::find_string(message, "bot").value_or(""));
    const auto bot = routing_.find_bot_by_uuid(uuid);
    if (uuid.empty() || bot == routing_.bots().end()) {
        return nullptr;
    }
    json::set(message, "ifname", bot->ifname, message.GetAllocator());
    return &*bot;
}

zorvin_client::outcome zorvin_client::carry_out_command(json::document& message, bot_record* bot) {
    const std::string word(json::find_string(message, "cmd").value_or(""));
    if (word.empty()) {
        give_reason(message, "missing command");
        return outcome::reply;
    }
    json::set(message, "success", json::value(false), message.GetAllocator());
    const auto* const known =
        std::find_if(std::begin(commands), std::end(commands),
                     [&word](const command& candidate) { return candidate.word == word; });
    if (known == std::end(commands)) {
        give_reason(message, "Not supported");
        return outcome::reply;
    }
    return (this->*known->carry_out)(message, bot);
}

zorvin_client::outcome zorvin_client::start_bot(json::document& message, bot_record* bot) {
    // "success" stays false even when the Bot sounds: servers wait for CSI, not for this answer.
    if (bot == nullptr) {
        give_reason(message, "No Bot selected");
    } else {
        start_sounding(*bot, static_cast<std::uint32_t>(sounding_rate_));
    }
    return outcome::reply;
}

zorvin_client::outcome zorvin_client::stop_bot(json::document& message, bot_record* bot) {
    if (bot == nullptr) {
        give_reason(message, "No Bot selected");
    } else {
        stop_sounding(*bot);
        tell_success(message);
    }
    return outcome::reply;
}

zorvin_client::outcome zorvin_client::accept(json::document& message, bot_record* /*bot*/) {
    tell_success(message);
    return outcome::reply;
}

zorvin_client::outcome zorvin_client::set_rate(json::document& message, bot_record* /*bot*/) {
    const std::optional<std::int32_t> rate = json::find_int(message, "rate");
    if (!rate) {
        // A question for the rate, answered with "success": false: servers look at the rate alone.
        json::set(message, "rate", json::value(sounding_rate_.load()), message.GetAllocator());
    } else if (*rate < 1) {
        give_reason(message, "Value error");
    } else {
        sounding_rate_ = *rate;
        tell_success(message);
    }
    return outcome::reply;
}

zorvin_client::outcome zorvin_client::request_scan(json::document& /*message*/,
                                                   bot_record* /*bot*/) {
    {
        const std::lock_guard<std::mutex> lock(lists_mutex_);
        reported_list_.clear();
    }
    scan_request_ = true;
    return outcome::no_reply;
}

zorvin_client::outcome zorvin_client::tell_bot_info(json::document& message, bot_record* /*bot*/) {
    json::allocator& memory = message.GetAllocator();
    json::set(message, "bot_info", build_bot_info(memory), memory);
    tell_success(message);
    return outcome::reply;
}

zorvin_client::outcome zorvin_client::set_poll_interval(json::document& message,
                                                        bot_record* /*bot*/) {
    const std::optional<std::int32_t> interval = json::find_int(message, "interval");
    if (interval && *interval > 0) {
        poll_interval_ms_ = *interval;
        tell_success(message);
    }
    return outcome::reply;
}

zorvin_client::outcome zorvin_client::disconnect(json::document& /*message*/, bot_record* /*bot*/) {
    return outcome::disconnect;
}

zorvin_client::outcome zorvin_client::tell_version(json::document& message, bot_record* /*bot*/) {
    json::set(message, "version", get(settings_, "version"), message.GetAllocator());
    tell_success(message);
    return outcome::reply;
}

} // namespace csi_receiver
