#include "peers/rest_server.h"

#include <utility>

#include "platform/json.h"

namespace peers {
namespace {

bool is_message_url(const std::string& path, const std::string& api) {
    const std::string begin = "/" + api + "/zorvins/";
    const std::string end = "/msg";
    if (path.size() <= begin.size() + end.size() || path.compare(0, begin.size(), begin) != 0 ||
        path.compare(path.size() - end.size(), end.size(), end) != 0) {
        return false;
    }
    const std::size_t uuid_size = path.size() - begin.size() - end.size();
    return path.substr(begin.size(), uuid_size).find('/') == std::string::npos;
}

bool asks_to_attach(const std::string& body) {
    const json::document parsed = json::parse(body);
    return parsed.IsObject() && json::find_string(parsed, "request") == "zorvinAttach";
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
    , port_(options_.port)
    , attach_answer_(options_.attach_answer) {
    start();
}

rest_server::~rest_server() {
    stop();
}

void rest_server::start() {
    const std::lock_guard<std::mutex> life(life_);
    if (listener_) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = false;
    }
    listener_ = std::make_unique<http_listener>(
        port_, options_.threads, [this](http_request request, const connection& from) {
            return answer(std::move(request), from);
        });
    if (port_ == 0) {
        port_ = listener_->port();
    }
    running_ = true;
}

void rest_server::stop() {
    const std::lock_guard<std::mutex> life(life_);
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    released_.notify_all();
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

void rest_server::set_attach_answer(std::string answer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    attach_answer_ = std::move(answer);
}

std::vector<http_request> rest_server::requests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return {requests_.begin(), requests_.end()};
}

bool rest_server::wait_for(const predicate& holds, std::chrono::milliseconds bound) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return noted_.wait_for(lock, bound, [&] { return holds(requests_); });
}

void rest_server::set_silent(bool silent) {
    change_faults([&](rest_server_faults& faults) { faults.silent = silent; });
}

void rest_server::set_delay(std::chrono::milliseconds delay) {
    change_faults([&](rest_server_faults& faults) { faults.delay = delay; });
}

void rest_server::set_cut(bool cut) {
    change_faults([&](rest_server_faults& faults) { faults.cut = cut; });
}

void rest_server::set_status(std::optional<int> status) {
    change_faults([&](rest_server_faults& faults) { faults.status = status; });
}

void rest_server::change_faults(const std::function<void(rest_server_faults&)>& change) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        change(faults_);
    }
    released_.notify_all();
}

std::optional<http_answer> rest_server::answer(http_request request, const connection& from) {
    const route where = route_of(request);
    note(std::move(request), where);
    if (!hold(from)) {
        return std::nullopt;
    }
    return compose(where);
}

rest_server::route rest_server::route_of(const http_request& request) const {
    const bool is_post = request.method == "POST";
    if (is_message_url(request.path, options_.api)) {
        if (!is_post) {
            return route::poll;
        }
        const bool attach = options_.api == "v3" && asks_to_attach(request.body);
        return attach ? route::attach : route::post;
    }
    const bool attach = options_.api == "v2" && is_post && request.path == "/v2/zorvins/attach";
    return attach ? route::attach : route::none;
}

void rest_server::note(http_request request, route where) {
    if (!request.body.empty()) {
        journal_.record("daemon", "server", request.body);
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++(request.method == "POST" ? posts_ : gets_);
        if (where == route::attach) {
            ++attaches_;
            attached_zorvin_ = zorvin_of(request.body);
        }
        requests_.push_back(std::move(request));
        if (requests_.size() > options_.kept_requests) {
            requests_.pop_front();
        }
    }
    noted_.notify_all();
}

/// Waits as long as the faults want. False when there is nobody left to answer: a command must
/// not be handed to a client that has given up.
bool rest_server::hold(const connection& from) {
    // A client that gives up must free its thread: look after it now and then.
    constexpr std::chrono::milliseconds glance(100);
    std::unique_lock<std::mutex> lock(mutex_);
    bool held = faults_.silent;
    while (faults_.silent && !stopping_) {
        released_.wait_for(lock, glance);
        if (from.peer_gone()) {
            return false;
        }
    }
    if (faults_.delay.count() > 0) {
        held = true;
        released_.wait_for(lock, faults_.delay, [this] { return stopping_; });
    }
    return !stopping_ && !(held && from.peer_gone());
}

http_answer rest_server::compose(route where) {
    const rest_server_faults now = faults();
    http_answer result;
    result.status = now.status.value_or(where == route::none ? 404 : 200);
    result.body = body_for(where);
    result.cut = now.cut;
    if (now.cut && result.body.empty()) {
        result.body = R"({"cmd":"there must be a body to cut"})";
    }
    return result;
}

std::string rest_server::body_for(route where) {
    std::string result;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (where == route::attach) {
            result = attach_answer_;
        } else if (where == route::poll && !commands_.empty()) {
            result = std::move(commands_.front());
            commands_.pop_front();
        }
    }
    if (!result.empty()) {
        // Before it leaves: who has the answer may rely on the journal.
        journal_.record("server", "daemon", result);
    }
    return result;
}

} // namespace peers
