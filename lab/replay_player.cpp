#include "lab/replay_player.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "client/fusion.h"
#include "core/core_request.h"
#include "lab/console.h"
#include "lab/daemon_runner.h"
#include "lab/input_error.h"
#include "lab/printer.h"
#include "lab/recording.h"
#include "lab/replay.h"
#include "peers/connection.h"
#include "peers/core_service.h"
#include "peers/datagram_peer.h"
#include "peers/http_listener.h"
#include "peers/installation.h"
#include "peers/journal.h"

namespace csi_lab {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// The peers, which ask the book. Any thread may call any function.
class replay_player {
public:
    replay_player(const std::vector<entry>& recording, printer& to, const arguments& given);
    ~replay_player();
    replay_player(const replay_player&) = delete;
    replay_player& operator=(const replay_player&) = delete;

    struct progress {
        bool begun;                       // whether the daemon has made a request
        bool complete;                    // whether all recorded requests were made
        steady_clock::duration idle_time; // since the latest one that was recorded
    };
    [[nodiscard]] progress look() const;
    /// The number of differences, which are shown, those at the end included.
    [[nodiscard]] std::size_t report();
    /// 0 without a server.
    [[nodiscard]] std::uint16_t http_port() const { return server_ ? server_->port() : 0; }

private:
    void open_peer(const std::string& name);
    void open_server(std::uint16_t port);
    replayed_answer ask(const entry& request);
    std::vector<std::string> datagram_replies(const std::string& peer, const std::string& request);
    std::optional<peers::http_response> respond(const peers::http_request& request,
                                                const peers::connection& client);
    void wait_for_end_of(const peers::connection& client) const;

    printer& to_;
    peers::journal journal_;
    mutable std::mutex mutex_; // guards the members up to latest_
    replay_book book_;
    std::size_t requests_ = 0;
    std::size_t differences_ = 0;
    std::size_t missing_ = 0;
    steady_clock::time_point latest_ = steady_clock::now();
    std::atomic<bool> stopping_{false};
    std::vector<std::unique_ptr<peers::datagram_peer>> datagram_peers_;
    std::unique_ptr<peers::http_listener> server_; // last: its threads use the above
};

replay_player::replay_player(const std::vector<entry>& recording, printer& to,
                             const arguments& given)
    : to_(to)
    , journal_(100)
    , book_(recording)
    , missing_(book_.missing_count()) {
    if (!given.quiet) {
        journal_.on_message([this](const peers::message& what) { to_.show(what); });
    }
    for (const std::string& name : book_.peers()) {
        if (name == "server") {
            open_server(given.lab.http_port);
        } else {
            open_peer(name);
        }
        to_.say("plays " + name);
    }
}

replay_player::~replay_player() {
    stopping_ = true;
    server_.reset();
}

void replay_player::open_peer(const std::string& name) {
    const bool is_fusion = name == "fusion";
    const std::string address =
        is_fusion ? csi_receiver::fusion_address : name.substr(peers::core_name("").size());
    const std::uint16_t port =
        is_fusion ? csi_receiver::fusion_port : csi_receiver::core_service_port;
    auto peer = std::make_unique<peers::datagram_peer>(
        journal_, peers::datagram_peer::identity{name, address, port, 1},
        [](const std::string& /*request*/) { return std::string(); });
    peer->answer_with([this, name](const std::string& request) {
        return std::optional(datagram_replies(name, request));
    });
    datagram_peers_.push_back(std::move(peer));
}

void replay_player::open_server(std::uint16_t port) {
    constexpr std::size_t threads = 4;
    server_ = std::make_unique<peers::http_listener>(
        port, threads, [this](const peers::http_request& request, const auto& client) {
            return respond(request, client);
        });
}

replayed_answer replay_player::ask(const entry& request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    replayed_answer result = book_.answer(request);
    ++requests_;
    if (!result.difference.empty()) {
        ++differences_;
        to_.say("DIFFERENT  " + request.to + " " + request.address + ": " + result.difference);
    }
    const std::size_t missing = book_.missing_count();
    if (missing != missing_ || requests_ == 1) {
        latest_ = steady_clock::now();
    }
    missing_ = missing;
    return result;
}

std::vector<std::string> replay_player::datagram_replies(const std::string& peer,
                                                         const std::string& request) {
    peers::message asked{};
    asked.from = "daemon";
    asked.to = peer;
    asked.text = request;
    std::vector<std::string> result;
    for (const entry& answer : ask(*recorder().entry_of(asked)).answers) {
        if (answer.event.empty()) {
            result.push_back(answer.text);
        }
    }
    return result;
}

std::optional<peers::http_response> replay_player::respond(const peers::http_request& request,
                                                           const peers::connection& client) {
    const peers::message asked = peers::message_of(request);
    journal_.record(asked);
    const auto answers = ask(*recorder().entry_of(asked)).answers;
    if (answers.empty()) {
        return peers::http_response{};
    }
    const entry& answer = answers.front();
    if (answer.event == "timeout") {
        wait_for_end_of(client);
        return std::nullopt;
    }
    peers::message answered = asked;
    std::swap(answered.from, answered.to);
    answered.text = answer.text;
    answered.status = answer.status;
    journal_.record(answered);
    peers::http_response result;
    result.status = answer.status == 0 ? 200 : answer.status;
    result.body = answer.text;
    result.cut = answer.event == "cut";
    return result;
}

void replay_player::wait_for_end_of(const peers::connection& client) const {
    while (!stopping_ && !client.closed_by_client()) {
        std::this_thread::sleep_for(milliseconds(50));
    }
}

replay_player::progress replay_player::look() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return {requests_ > 0, missing_ == 0 && requests_ > 0, steady_clock::now() - latest_};
}

std::size_t replay_player::report() {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const entry& request : book_.missing()) {
        ++differences_;
        to_.say("MISSING    " + request.to + " " + request.address + ": line " +
                std::to_string(request.line) + ": " + request.text);
    }
    to_.say((differences_ == 0   ? std::string("no difference")
             : differences_ == 1 ? std::string("1 difference")
                                 : std::to_string(differences_) + " differences") +
            " in " + std::to_string(requests_) + " requests");
    return differences_;
}

/// Starts the daemon of --daemon, if there is one, with the configuration for the other options.
std::unique_ptr<daemon_runner> start_daemon(const arguments& given, std::uint16_t port,
                                            printer& to) {
    if (given.daemon.empty()) {
        return nullptr;
    }
    peers::installation_options lab = given.lab;
    lab.http_port = port;
    const bool quiet = given.quiet;
    auto result = std::make_unique<daemon_runner>(given.daemon, peers::configuration(lab),
                                                  [&to, quiet](const std::string& line) {
                                                      if (!quiet) {
                                                          to.say(line);
                                                      }
                                                  });
    static_cast<void>(result->start());
    return result;
}

} // namespace

int replay_recording(const arguments& given) {
    const auto recording = read_recording(given.replayed);
    if (recording.empty()) {
        throw input_error(given.replayed + " has no messages");
    }
    console signals;
    printer to(wants_color(given), false);
    replay_player player(recording, to, given);
    const auto daemon = start_daemon(given, player.http_port(), to);
    const double gap = replay_book(recording).longest_gap();
    const auto patience = std::chrono::seconds(10) + milliseconds(static_cast<long>(gap * 1000));
    const milliseconds grace(300); // for the last answer to arrive
    const peers::waker never;
    while (signals.wait(never, milliseconds(50))) {
        const auto seen = player.look();
        if ((seen.complete && seen.idle_time > grace) ||
            ((seen.begun || daemon != nullptr) && seen.idle_time > patience)) {
            break;
        }
    }
    return player.report() == 0 ? 0 : 1;
}

} // namespace csi_lab
