// Plays the scenarios in vectors/scenarios/: a client starts, takes turns of its main loop and
// ends. Each step lists what the client sends and what it logs.
#include <algorithm>
#include <map>
#include <memory>

#include "peers/fusion_daemon.h"
#include "support/client_fixture.h"
#include "support/vectors.h"

using namespace csi_receiver;
using namespace std::chrono_literals;

namespace {

/// A client whose main loop waits for the test before each turn. Its scan timer never fires: the
/// test runs the checks.
class stepped_client {
public:
    explicit stepped_client(const configuration& settings)
        : run_(settings, 3600 * 1000, [this] {
            waits_ = true;
            EXPECT_TRUE(wait_until([this] { return !waits_; }, bound)) << "a turn too many";
            return now_;
        }) {}
    ~stepped_client() {
        run_.signal(SIGTERM);
        waits_ = false;
    }

    /// Waits until the client is about to take a turn, or has ended.
    void reach_turn() {
        EXPECT_TRUE(wait_until([this] { return waits_ || run_.ended(); }, bound));
    }
    /// Lets it take one turn, including the wait at its end.
    void turn(pacing::time now) {
        now_ = now;
        waits_ = false;
        reach_turn();
    }
    running_client& operator*() { return run_; }

private:
    std::atomic<bool> waits_{false};
    pacing::time now_{0}; // written only while the client waits
    running_client run_;  // last: its thread uses all of the above
};

/// The lines without their times, and without the reasons why requests failed.
texts split_log(const std::string& text) {
    texts lines = lines_of(text, "[] ");
    for (std::string& line : lines) {
        line.resize(std::min(line.find(" failed: "), line.size()));
    }
    return lines;
}

void expect_within(std::chrono::nanoseconds time, const json::value& step, const char* name) {
    if (const json::value* const range = json::find(step, name)) {
        EXPECT_GE(time, std::chrono::milliseconds((*range)[0].GetInt()));
        EXPECT_LT(time, std::chrono::milliseconds((*range)[1].GetInt()));
    }
}

class scenario {
public:
    /// `common` is the whole file. Its "settings" hold unless `own` replaces them, or removes them
    /// with null; its "names" stand for lists of texts.
    scenario(const json::value& common, const json::value& own)
        : server_(journal_, {static_cast<std::uint16_t>(json::find_int(own, "port").value_or(8090)),
                             std::string(json::find_string(own, "api").value_or("v2"))}) {
        for (const json::value* const settings : {&common, &own}) {
            for_each_member(*settings, "settings", [this](const char* name, const auto& setting) {
                settings_[name] = wire_text(setting);
                if (setting.IsNull()) {
                    settings_.erase(name);
                }
            });
        }
        for_each_member(common, "names", [&](const char* name, const auto& /*list*/) {
            names_[name] = expected(common["names"], name);
        });
        routing_table table;
        table.add_routing(settings_["routing"]);
        for (const zorvin_entry& zorvin : table.zorvins()) {
            cores_.push_back(std::make_unique<peers::core_service>(journal_, zorvin.address));
        }
    }

    void play(const json::value& step) {
        prepare(step);
        journal_.clear();
        const std::size_t seen_text = output_.text().size();
        const std::size_t seen_requests = server_.requests().size();
        const stopwatch watch;
        if (!client_) {
            client_.emplace(settings_);
            client_->reach_turn();
        } else if (const json::value* const at_us = json::find(step, "at_us")) {
            client_->turn(std::chrono::microseconds(at_us->GetInt64()));
        } else if (step.HasMember("checks")) {
            check_scan(step, "checks");
        } else {
            client_.reset();
        }
        expect_within(watch.elapsed(), step, "turn_ms");
        EXPECT_EQ(sent(), expected(step, "sent"));
        expect_requests(step, seen_requests);
        EXPECT_EQ(split_log(output_.text().substr(seen_text)), expected(step, "lines"));
        if (const auto path = json::find_string(step, "log_path")) {
            EXPECT_EQ(log_path, *path);
            EXPECT_EQ(split_log(read_file(log_path + "/" + log_file)), expected(step, "log"));
        }
    }

private:
    /// Sets up the peers, and what happens to the client, before the step.
    void prepare(const json::value& step) {
        for_each_member(step, "answers", [this](const char* request, const auto& reply) {
            answers_[request] = wire_text(reply);
        });
        for (const auto& core : cores_) {
            core->answer_with(replies_of(core->peer()));
        }
        fusion_.answer_with(replies_of(fusion_.peer()));
        if (const json::value* const answer = json::find(step, "attach_answer")) {
            server_.set_attach_answer(wire_text(*answer));
        }
        if (const auto what = json::find_string(step, "server")) {
            *what == "stops" ? server_.stop() : server_.start();
        }
        if (json::find_string(step, "fusion") == "stops") {
            fusion_.stop();
        }
        for_each(step, "queue", [this](const auto& text) { server_.queue(wire_text(text)); });
        for_each(step, "signals", [this](const auto& one) { (**client_).signal(one.GetInt()); });
        check_scan(step, "scan_checks");
        if (const auto bytes = json::find_int(step, "log_grows_by")) {
            print(std::string(static_cast<std::size_t>(*bytes), '.'));
        }
    }

    void check_scan(const json::value& step, const char* count) {
        for (int left = json::find_int(step, count).value_or(0); left > 0; --left) {
            static_cast<void>((**client_).client().scan_check());
        }
    }
    /// Looks the request up as it is, and with the peer's name in front.
    peers::datagram_peer::reply_override replies_of(const peers::datagram_peer& peer) {
        return [this, name = peer.name(), replies = answers_](const std::string& request) {
            auto known = replies.find(request);
            known = known == replies.end() ? replies.find(name + " " + request) : known;
            if (known != replies.end() && known->second == "the server stops") {
                server_.stop();
                known = replies.end();
            }
            return known == replies.end() ? std::nullopt : std::optional<texts>({known->second});
        };
    }
    [[nodiscard]] texts sent() const {
        texts result;
        for (const peers::message& message : journal_.select("daemon", "")) {
            const bool line_feed = message.text.back() == '\n';
            result.push_back(message.to + (line_feed ? ", unasked " : " ") + message.text);
            result.back().resize(result.back().size() - (line_feed ? 1 : 0));
        }
        return result;
    }
    /// The listed texts; a name is replaced by those that it stands for.
    [[nodiscard]] texts expected(const json::value& step, const char* list) const {
        texts result;
        for_each(step, list, [&](const json::value& written) {
            const auto known = names_.find(named_text(written));
            const texts itself = {named_text(written)};
            const texts& meant = known == names_.end() ? itself : known->second;
            result.insert(result.end(), meant.begin(), meant.end());
        });
        return result;
    }
    void expect_requests(const json::value& step, std::size_t seen) {
        texts requests;
        auto pause = std::chrono::steady_clock::duration::max(); // the shortest one after a POST
        const std::vector<peers::http_request> all = server_.requests();
        for (std::size_t at = seen; at < all.size(); ++at) {
            requests.push_back(all[at].method + " " + all[at].header("Host") + all[at].path);
            if (at > seen && all[at - 1].method == "POST") {
                pause = std::min(pause, all[at].when - all[at - 1].when);
            }
        }
        EXPECT_EQ(requests, expected(step, "requests"));
        expect_within(pause, step, "pause_ms");
    }

    captured_output output_;
    peers::journal journal_;
    peers::rest_server server_;
    peers::fusion_daemon fusion_{journal_};
    std::vector<std::unique_ptr<peers::core_service>> cores_;
    configuration settings_;
    std::map<std::string, texts> names_;
    std::map<std::string, std::string> answers_; // to requests
    std::optional<stepped_client> client_;
};

} // namespace

class scenarios : public testing::TestWithParam<std::string> {};

TEST_P(scenarios, go_as_written) {
    temporary_directory directory;
    const json::document vector = read_vector("scenarios/" + GetParam(), directory.path);
    for (const json::value& written : vector["scenarios"].GetArray()) {
        scenario played(vector, written);
        for (const json::value& step : written["steps"].GetArray()) {
            SCOPED_TRACE(json::write(written["about"]) + "\n" + json::write(step));
            played.play(step);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(vectors, scenarios, testing::ValuesIn(vector_files("scenarios")),
                         [](const auto& name) { return name.param; });
