#include "lab/against.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <sstream>
#include <utility>
#include <vector>

#include "client/fusion.h"
#include "core/core_request.h"
#include "lab/console.h"
#include "lab/judge.h"
#include "lab/printer.h"
#include "lab/relay.h"
#include "lab/script.h"
#include "lab/session.h"
#include "peers/core_service.h"

namespace csi_lab {
namespace {

/// Relay and played core services are here, so that the peer under test can have 127.0.0.1.
constexpr unsigned first_core = 101;
/// The daemon gives a poll up after this time, and so does the relay.
constexpr double max_poll_seconds = 5;

/// What the peer under test does. May be called from any thread.
class peer_watch {
public:
    explicit peer_watch(std::string peer)
        : peer_(std::move(peer)) {}

    void note(const entry& what);
    /// Everything that was found, as lines. Returns how much that is.
    std::size_t report(printer& to);

private:
    void note_server(const entry& what);
    [[nodiscard]] bool is_poll_held(const entry& answer) const;

    const std::string peer_;
    std::mutex mutex_; // guards the members below
    judge judge_;
    std::vector<std::string> found_;
    std::size_t breaches_ = 0;
    std::size_t answers_ = 0;
    std::size_t polls_ = 0;
    std::size_t empty_polls_ = 0;
    std::size_t replies_ = 0;
    std::optional<entry> latest_; // request to the server
};

void peer_watch::note(const entry& what) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto findings = judge_.next(what);
    if (what.from == "daemon") {
        if (what.to == peer_) {
            latest_ = what;
        }
        return;
    }
    if (what.from != peer_) {
        return;
    }
    ++answers_;
    for (const finding& one : findings) {
        ++breaches_;
        for (std::string& line : describe(one)) {
            found_.push_back(std::move(line));
        }
    }
    if (is_poll_held(what)) {
        ++breaches_;
        found_.emplace_back("a poll was held for longer than the daemon's 5 s");
    } else if (what.event == "timeout") {
        ++breaches_;
        found_.push_back("no answer to " + (latest_ ? latest_->method + " " + latest_->text : ""));
    }
    if (peer_ == "server" && what.event.empty()) {
        note_server(what);
    }
}

bool peer_watch::is_poll_held(const entry& answer) const {
    return answer.method == "GET" && latest_ && answer.time - latest_->time >= max_poll_seconds;
}

void peer_watch::note_server(const entry& what) {
    if (what.method == "GET") {
        ++polls_;
        empty_polls_ += what.text.empty() ? 1U : 0U;
    } else {
        ++replies_;
        if (what.status >= 300) {
            ++breaches_;
            found_.push_back("a message was refused with status " + std::to_string(what.status) +
                             ": " + (latest_ ? latest_->text : ""));
        }
    }
}

std::size_t peer_watch::report(printer& to) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (peer_ == "server" && polls_ > 0 && empty_polls_ == 0) {
        ++breaches_;
        found_.emplace_back("no poll had an empty body: the daemon never waits");
    }
    if (answers_ == 0) {
        ++breaches_;
        found_.emplace_back("the peer has sent nothing");
    }
    to.say("--- The verdict on " + peer_);
    for (const std::string& line : found_) {
        to.say(line);
    }
    if (peer_ == "server") {
        to.say(std::to_string(polls_) + " polls, " + std::to_string(polls_ - empty_polls_) +
               " commands, " + std::to_string(replies_) + " messages of the daemon answered");
    }
    to.say(std::to_string(breaches_) + (breaches_ == 1 ? " breach in " : " breaches in ") +
           std::to_string(answers_) + " answers");
    return breaches_;
}

/// The options of the lab that plays the others.
arguments lab_around(const arguments& given, const target& tested) {
    arguments result = given;
    result.lab.zorvins = 2;
    result.lab.bots = 3;
    result.lab.fusion = true;
    result.lab.first_core = first_core;
    result.lab.http_port = 0;
    result.lab.times.appear_after = std::chrono::milliseconds(300);
    result.lab.times.vanish_after = std::chrono::milliseconds(500);
    const std::string core = peers::core_name("127.0.0." + std::to_string(first_core));
    result.lab.relayed.insert(tested.peer == "core" ? core : tested.peer);
    return result;
}

/// Puts the relay in the place of the peer under test.
std::unique_ptr<server_relay> add_relay(session& place, const target& tested) {
    if (tested.peer == "server") {
        return std::make_unique<server_relay>(place.journal(), tested.url);
    }
    const std::string address = tested.peer == "core" ? "127.0.0." + std::to_string(first_core)
                                                      : std::string(csi_receiver::fusion_address);
    const bool is_core = tested.peer == "core";
    place.lab().adopt(
        make_relay(place.journal(), tested,
                   {is_core ? peers::core_name(address) : "fusion", address,
                    is_core ? csi_receiver::core_service_port : csi_receiver::fusion_port, 1}));
    return nullptr;
}

/// The relay for the fusion daemon needs the only address at which the daemon looks for it.
void check_address(const target& tested) {
    const bool clashes = tested.peer == "fusion" && tested.port == csi_receiver::fusion_port &&
                         tested.address == csi_receiver::fusion_address;
    if (clashes) {
        throw CLI::ValidationError(
            "--against", "the relay needs 127.0.0.1 port 14312: let the fusion daemon listen at "
                         "another address or port, such as fusion=127.0.0.2");
    }
}

} // namespace

int test_peer(const arguments& given) {
    const target tested = parse_target(given.against);
    check_address(tested);
    const arguments around = lab_around(given, tested);
    console signals;
    printer to(wants_color(given), given.json);
    peer_watch watch(tested.peer);
    bool as_expected = false;
    {
        session place(around, to, [&watch](const entry& what) { watch.note(what); });
        const auto relay = add_relay(place, tested);
        place.run_daemon(given.daemon.empty() ? "csi_receiver" : given.daemon,
                         relay ? relay->port() : 0);
        std::istringstream walk(walk_for(tested.peer, given.seconds));
        const auto script = read_script(walk, around.lab, true);
        script_runner runner(place.on(), place.seen(), signals, to);
        as_expected = runner.run(script);
        place.end_daemon();
    }
    const std::size_t breaches = watch.report(to);
    return as_expected && breaches == 0 ? 0 : 1;
}

} // namespace csi_lab
