#include "fleet/fleet_peers.h"

#include <set>

#include "peers/http_listener.h"

namespace csi_fleet {
namespace {

using std::chrono::steady_clock;

peers::rest_server_options server_options(const fleet_options& options) {
    peers::rest_server_options result;
    result.port = options.port;
    result.threads = options.daemons + 16U; // a broken connection may still hold one
    result.kept_requests = std::size_t{options.daemons} * 30 + 100;
    return result;
}

std::string core_address(unsigned index) {
    return "127.1." + std::to_string(index / 250) + "." + std::to_string(index % 250 + 1);
}

} // namespace

fleet_peers::fleet_peers(const fleet_options& options)
    : poll_intervals_(options.poll_intervals.first, options.poll_intervals.second)
    , attaches_(options.attach_file)
    , traffic_(std::in_place, options.port)
    , server_(observed_journal(), server_options(options)) {
    peers::core_service_options core_options;
    core_options.times.appear_after = std::chrono::milliseconds(500); // keeps scans short
    for (unsigned index = 0; index < options.daemons; ++index) {
        core_services_.push_back(
            std::make_unique<peers::core_service>(journal_, core_address(index), core_options));
    }
}

std::string fleet_peers::execute(const std::string& line) {
    if (line == "pollers") {
        return std::to_string(pollers());
    }
    if (line == "traffic") {
        return traffic();
    }
    if (line == "stop") {
        server_.stop();
    } else if (line == "start") {
        server_.start();
        server_start_ = steady_clock::now();
    } else if (line == "stop-traffic") {
        traffic_.reset();
    }
    return state();
}

std::string fleet_peers::state() const {
    return std::to_string(now_ms()) + " " + std::to_string(server_.gets()) + " " +
           std::to_string(server_.posts()) + " " + std::to_string(server_.attaches());
}

std::string fleet_peers::traffic() {
    const traffic_meter::totals totals = traffic_.value().count();
    return std::to_string(totals.attach_bytes) + " " + std::to_string(totals.polls) + " " +
           std::to_string(totals.poll_bytes) + (totals.complete ? " complete" : " incomplete");
}

peers::journal& fleet_peers::observed_journal() {
    journal_.on_message([this](const peers::message& message) {
        if (message.to == "server" && message.text.rfind(R"({"type":"zorvin")", 0) == 0) {
            handle_attach();
        }
    });
    return journal_;
}

/// Before the server answers the attach.
void fleet_peers::handle_attach() {
    attaches_ << now_ms() << std::endl;
    if (poll_intervals_.b() > 0) {
        server_.set_attach_answer(random_poll_interval());
    }
}

std::string fleet_peers::random_poll_interval() {
    return R"({"cmd":"poll_interval","interval":)" + std::to_string(poll_intervals_(random_)) + "}";
}

/// Each daemon polls at a path of its own.
std::size_t fleet_peers::pollers() const {
    std::set<std::string> paths;
    for (const peers::http_request& request : server_.requests()) {
        if (request.method == "GET" && request.when > server_start_) {
            paths.insert(request.path);
        }
    }
    return paths.size();
}

long long fleet_peers::now_ms() const {
    const auto elapsed = steady_clock::now() - start_;
    return std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count();
}

} // namespace csi_fleet
