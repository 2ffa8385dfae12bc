#include "client/rest_session.h"

#include <chrono>
#include <thread>
#include <utility>

#include "daemon/log.h"

namespace csi_receiver {
namespace {

constexpr std::chrono::milliseconds command_pause{20};

} // namespace

rest_session::rest_session(std::string server, std::uint32_t port, client_state& state)
    : server_(std::move(server))
    , state_(state)
    , http_(port) {
    http_.set_shutdown_test([this] { return state_.shutting_down(); });
}

void rest_session::set_urls(const std::string& api, const std::string& zorvin_uuid) {
    // The port is left empty, and goes to the transport by itself: kept for compatibility.
    const std::string zorvins = "http://" + server_ + ":/" + api + "/zorvins/";
    message_url_ = zorvins + zorvin_uuid + "/msg";
    attach_url_ = api == "v3" ? message_url_ : zorvins + "attach";
}

bool rest_session::connect(const std::string& attach, const message_handler& handle) {
    const std::string body = http_.post_json_unless_shutting_down(attach_url_, attach).value_or("");
    if (!http_.connected() || body.empty()) {
        return false;
    }
    std::string reply;
    if (!handle(body, reply)) {
        return false;
    }
    if (!reply.empty()) {
        log_sent(reply);
        http_.post_json(message_url_, reply);
    }
    log_prefix() << "Connected to REST server at " << server_and_port();
    state_.scan_request = true;
    return true;
}

bool rest_session::poll(const std::string& url, const message_handler& handle,
                        const std::function<void()>& between) {
    while (http_.connected()) {
        const std::string body = http_.get(url);
        if (body.empty()) {
            break;
        }
        std::string reply;
        if (!handle(body, reply)) {
            log_prefix() << "Disconnected from REST server at " << server_and_port();
            return false;
        }
        if (reply.empty()) {
            break;
        }
        http_.post_json(url, reply);
        log_sent(reply);
        std::this_thread::sleep_for(command_pause);
        between();
    }
    return http_.connected();
}

void rest_session::send(const std::string& text) {
    if (http_.post_json_unless_shutting_down(message_url_, text + "\n")) {
        log_sent(text);
    }
}

void rest_session::log_sent(const std::string& text) const {
    log_prefix() << "[ " << server_ << " ] <-- " << text;
}

std::string rest_session::server_and_port() const {
    return server_ + ":" + std::to_string(http_.port());
}

} // namespace csi_receiver
