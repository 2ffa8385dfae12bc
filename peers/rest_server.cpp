#include "peers/rest_server.h"

#include <utility>

#include "peers/connection.h"
#include "platform/json.h"

namespace peers {
namespace {

constexpr std::chrono::milliseconds no_delay(0);
/// The daemon waits 5 s for the answer to a poll.
constexpr std::chrono::milliseconds late(6000);

/// Whether the path is that of a Zorvin's messages: /API/zorvins/UUID/msg.
bool is_message_url(const std::string& path, const std::string& api) {
    const std::string prefix = "/" + api + "/zorvins/";
    const std::string suffix = "/msg";
    if (path.size() <= prefix.size() + suffix.size() || path.rfind(prefix, 0) != 0) {
        return false;
    }
    const std::size_t end_of_uuid = path.size() - suffix.size();
    return path.find('/', prefix.size()) == end_of_uuid &&
           path.compare(end_of_uuid, suffix.size(), suffix) == 0;
}

bool is_disconnect(const std::string& command) {
    const json::document parsed = json::parse(command);
    return parsed.IsObject() && json::find_string(parsed, "cmd") == "disconnect";
}

bool is_attach(const std::string& body) {
    const json::document parsed = json::parse(body);
    return parsed.IsObject() && json::find_string(parsed, "request") == "zorvinAttach";
}

/// Whether the path is that of a request that was redirected; it is the original one then.
bool strip_redirection(std::string& path) {
    const std::size_t end = path.find(redirected);
    if (end == std::string::npos) {
        return false;
    }
    path.resize(end);
    return true;
}

/// There must be a body to cut.
void cut(http_response& response) {
    if (response.body.empty()) {
        response.body = R"({"cmd":"there must be a body to cut"})";
    }
}

std::string zorvin_of(const std::string& body) {
    const json::document parsed = json::parse(body);
    const json::value* zorvin = parsed.IsObject() ? json::find(parsed, "zorvin") : nullptr;
    return zorvin == nullptr ? "unknown" : json::write(*zorvin);
}

} // namespace

rest_server::rest_server(journal& record, rest_server_options options)
    : journal_(record)
    , options_(std::move(options))
    , port_(options_.port) {
    start();
}

rest_server::~rest_server() {
    stop();
}

void rest_server::start() {
    const std::lock_guard<std::mutex> start_stop_lock(start_stop_mutex_);
    if (listener_) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = false;
    }
    listener_ = std::make_unique<http_listener>(
        port_, options_.threads, [this](http_request request, const connection& client) {
            return respond(std::move(request), client);
        });
    if (port_ == 0) {
        port_ = listener_->port();
    }
    running_ = true;
}

void rest_server::stop() {
    const std::lock_guard<std::mutex> start_stop_lock(start_stop_mutex_);
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    listener_.reset();
    running_ = false;
}

void rest_server::queue(std::string command) {
    const std::lock_guard<std::mutex> lock(mutex_);
    commands_.push_back(std::move(command));
}

std::size_t rest_server::queued() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return commands_.size();
}

bool rest_server::all_answered() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return commands_.empty() && answered_;
}

void rest_server::set_attach_answer(std::string answer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    attach_answer_ = std::move(answer);
}

std::vector<http_request> rest_server::requests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return {requests_.begin(), requests_.end()};
}

bool rest_server::wait_for(const predicate& holds, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return recorded_.wait_for(lock, timeout, [&] { return holds(requests_); });
}

std::optional<http_response> rest_server::respond(http_request request, const connection& client) {
    const std::string redirected_path = request.path;
    const bool was_redirected = strip_redirection(request.path);
    const route where = route_of(request);
    message answer{};
    answer.from = "server";
    answer.to = "daemon";
    answer.method = request.method;
    answer.path = redirected_path;
    record(std::move(request), redirected_path, where);
    if (!wait_out_faults(client)) {
        answer.event = "timeout";
        journal_.record(std::move(answer));
        return std::nullopt;
    }
    http_response response = make_response(where, was_redirected, redirected_path);
    answer.status = response.status;
    answer.text = response.body;
    if (response.cut) {
        answer.event = "cut";
        cut(response);
    }
    // Recorded before it is sent: whoever has the response finds it in the journal.
    journal_.record(std::move(answer));
    return response;
}

rest_server::route rest_server::route_of(const http_request& request) const {
    const bool is_post = request.method == "POST";
    if (is_message_url(request.path, options_.api)) {
        if (!is_post) {
            return route::poll;
        }
        return options_.api == "v3" && is_attach(request.body) ? route::attach : route::post;
    }
    const bool is_v2_attach =
        options_.api == "v2" && is_post && request.path == "/v2/zorvins/attach";
    return is_v2_attach ? route::attach : route::none;
}

void rest_server::record(http_request request, const std::string& path, route where) {
    message what = message_of(request);
    what.path = path;
    journal_.record(std::move(what));
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++(request.method == "POST" ? posts_ : gets_);
        const bool is_unsolicited = !request.body.empty() && request.body.back() == '\n';
        answered_ = answered_ || !is_unsolicited;
        if (where == route::attach) {
            ++attaches_;
            attached_zorvin_ = zorvin_of(request.body);
        }
        requests_.push_back(std::move(request));
        if (requests_.size() > options_.kept_requests) {
            requests_.pop_front();
        }
    }
    recorded_.notify_all();
}

/// False when nobody is left to respond to: a client that has given up must not be handed a
/// command.
bool rest_server::wait_out_faults(const connection& client) {
    // A client that has given up must not hold its thread.
    constexpr std::chrono::milliseconds check_period(100);
    std::unique_lock<std::mutex> lock(mutex_);
    bool waited = faults_.silent;
    while (faults_.silent && !stopping_) {
        changed_.wait_for(lock, check_period);
        if (client.closed_by_client()) {
            return false;
        }
    }
    const auto delay = faults_.delay + (faults_.wrong == wrong_answer::late ? late : no_delay);
    if (delay.count() > 0) {
        waited = true;
        changed_.wait_for(lock, delay, [this] { return stopping_; });
    }
    return !stopping_ && !(waited && client.closed_by_client());
}

http_response rest_server::make_response(route where, bool was_redirected,
                                         const std::string& path) {
    const rest_server_faults present = faults();
    const wrong_answer wrong = was_redirected && present.wrong == wrong_answer::redirect
                                   ? wrong_answer::none
                                   : present.wrong;
    http_response result;
    result.status = present.status.value_or(where == route::none ? 404 : 200);
    // An answer that replaces the server's own leaves the command in the queue.
    if (wrong != wrong_answer::page && wrong != wrong_answer::redirect) {
        result.body = take_body(where);
    }
    if (wrong != wrong_answer::body || where == route::poll) {
        spoil(wrong, path, result);
    }
    result.cut = result.cut || present.cut;
    return result;
}

std::string rest_server::take_body(route where) {
    std::string result;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (where == route::attach) {
        result = attach_answer_;
    } else if (where == route::poll && !commands_.empty()) {
        result = std::move(commands_.front());
        commands_.pop_front();
        answered_ = false;
        if (is_disconnect(result)) {
            attached_zorvin_.clear();
        }
    }
    return result;
}

} // namespace peers
