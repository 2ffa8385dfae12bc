// The conversation with the REST server: attach, poll, and what is sent unasked.
#include <thread>
#include <unordered_set>

#include "client/identifiers.h"
#include "client/zorvin_client.h"
#include "daemon/log.h"
#include "daemon/signals.h"

namespace csi_receiver {
namespace {

constexpr std::chrono::milliseconds command_pause{20};

} // namespace

bool zorvin_client::build_message_url() {
    if (!has_key(settings_, "api")) {
        settings_["api"] = "v2";
    }
    const std::string& api = get(settings_, "api");
    if (api != "v2" && api != "v3") {
        log_prefix() << "API version unsupported";
        return false;
    }
    is_v3_ = api == "v3";
    // The empty port is meant: servers' logs and proxies know these URLs, and the port goes to the
    // transport by itself.
    message_url_ = "http://" + server_ + ":/" + api + "/zorvins/" + uuid_ + "/msg";
    return true;
}

std::string zorvin_client::server_and_port() const {
    return server_ + ":" + std::to_string(http_.port());
}

void zorvin_client::log_sent(const std::string& text) const {
    log_prefix() << "[ " << server_ << " ] <-- " << text;
}

bool zorvin_client::connect() {
    const std::string url = is_v3_ ? message_url_ : "http://" + server_ + ":/v2/zorvins/attach";
    const std::string body = http_.post_json_unless_ending(url, build_attach()).value_or("");
    if (!http_.connected() || body.empty()) {
        return false;
    }
    std::string reply;
    if (!parse_msg(body, reply)) {
        return false;
    }
    if (!reply.empty()) {
        log_sent(reply);
        http_.post_json(message_url_, reply);
    }
    log_prefix() << "Connected to REST server at " << server_and_port();
    scan_request_ = true;
    return true;
}

bool zorvin_client::poll(const std::string& url) {
    while (http_.connected()) {
        const std::string body = http_.get(url);
        if (body.empty()) {
            break;
        }
        std::string reply;
        if (!parse_msg(body, reply)) {
            log_prefix() << "Disconnected from REST server at " << server_and_port();
            return false;
        }
        if (reply.empty()) {
            break;
        }
        http_.post_json(url, reply);
        log_sent(reply);
        std::this_thread::sleep_for(command_pause);
        keep_log_small(); // a server that always has a command keeps us here
    }
    return http_.connected();
}

void zorvin_client::send(const std::string& text) {
    if (http_.post_json_unless_ending(message_url_, text + "\n")) {
        log_sent(text);
    }
}

void zorvin_client::send_status() {
    json::document message(rapidjson::kObjectType);
    json::allocator& memory = message.GetAllocator();
    if (is_v3_) {
        json::set(message, "request", "zorvinMsg", memory);
        json::set(message, "zorvin", uuid_, memory);
    }
    json::set(message, "bot_info", build_bot_info(memory), memory);
    identifiers_to_numbers(message);
    send(json::write(message));
}

std::string zorvin_client::build_attach() {
    json::document message(rapidjson::kObjectType);
    json::allocator& memory = message.GetAllocator();
    json::set(message, "type", "zorvin", memory);
    // Servers know this radio by the name of its other driver.
    json::set(message, "driver", driver_name_ == "qcawifi" ? "ath10k" : driver_name_, memory);
    if (is_v3_) {
        json::set(message, "request", "zorvinAttach", memory);
    }
    json::set(message, "zorvin", uuid_, memory);
    json::set(message, "ssid", ssid_, memory);
    json::set(message, "join", json::value(true), memory);
    json::set(message, "chains", json::value(chains_), memory);
    json::set(message, "bot_info", build_bot_info(memory), memory);
    json::set(message, "version", get(settings_, "version"), memory);
    json::value support(rapidjson::kObjectType);
    for (const char* engine : {"motion2", "breathing2", "guard"}) {
        json::set(support, engine, json::value(1U), memory);
    }
    if (fusion_) {
        json::set(support, "cpd", json::value(1U), memory);
        json::set(support, "softSecurity", json::value(1U), memory);
    }
    json::set(message, "localCalculationSupport", std::move(support), memory);
    identifiers_to_numbers(message);
    return json::write(message);
}

json::value zorvin_client::build_bot_info(json::allocator& memory) {
    json::value info(rapidjson::kArrayType);
    const std::lock_guard<std::mutex> lock(lists_mutex_);
    reported_list_.clear();
    const std::unordered_set<std::string> found(scan_list_.begin(), scan_list_.end());
    for (const bot_record& bot : routing_.bots()) {
        if (found.count(bot.uuid) == 0) {
            continue;
        }
        json::value entry(rapidjson::kObjectType);
        json::set(entry, "bot", bot.uuid, memory);
        json::set(entry, "hwaddr", bot.hwaddr, memory);
        json::set(entry, "chains", json::value(1), memory); // always 1: servers count on it
        info.PushBack(entry, memory);
        reported_list_.push_back(bot.uuid);
    }
    return info;
}

} // namespace csi_receiver
