// The conversations in vectors/: what arrives from the server, what the peers are asked, what is
// answered and logged, byte for byte, and what the client knows afterwards.
#include <map>
#include <memory>
#include <mutex>

#include <gtest/gtest.h>

#include "client/dispatcher.h"
#include "peers/core_service.h"
#include "peers/fusion_daemon.h"
#include "support/fixtures.h"
#include "support/vectors.h"

using namespace csi_receiver;

namespace {

/// What the peers are to answer in a step, and what they heard.
class peer_script {
public:
    void begin(const json::value& step) {
        const std::lock_guard<std::mutex> lock(mutex_);
        expected_.clear();
        answers_.clear();
        heard_.clear();
        for_each(step, "asks", [this](const json::value& ask) {
            expected_.push_back(wire_text(ask["to"]) + " " + wire_text(ask["request"]));
            answers_.push_back(wire_text(ask["answer"]));
        });
    }
    texts hear(const std::string& peer, const std::string& request) {
        const std::lock_guard<std::mutex> lock(mutex_);
        heard_.push_back(peer + " " + request);
        return heard_.size() <= answers_.size() ? texts{answers_[heard_.size() - 1]} : texts{"{}"};
    }
    void check() {
        const std::lock_guard<std::mutex> lock(mutex_);
        EXPECT_EQ(heard_, expected_);
    }

private:
    std::mutex mutex_;
    texts expected_;
    texts answers_;
    texts heard_;
};

} // namespace

class conversation : public testing::TestWithParam<std::string> {
protected:
    void play(const json::value& step) {
        SCOPED_TRACE(json::write(step));
        script.begin(step);
        static_cast<void>(output.lines());
        state.scan_request = false;
        std::string reply;
        const std::string received = wire_text(step["receive"]);
        EXPECT_EQ(commands.parse_msg(received, reply), !step.HasMember("disconnects"));
        EXPECT_EQ(reply, step["reply"].IsNull() ? "" : wire_text(step["reply"]));
        script.check();
        texts lines = {"zorvin_client::parse_msg receives: " + received};
        for_each(step, "log", [&](const auto& line) { lines.push_back(wire_text(line)); });
        EXPECT_EQ(output.lines(), lines);
        known["scan_request"] = "false";
        for_each_member(step, "changes", [this](const char* name, const auto& value) {
            known[name] = wire_text(value);
        });
        EXPECT_EQ(knowledge(), known);
    }

    std::map<std::string, std::string> knowledge() {
        std::map<std::string, std::string> result = {
            {"interval", std::to_string(pace.wait_ms(false) / 20)},
            {"rate", std::to_string(state.sounding_rate)},
            {"scan_request", state.scan_request ? "true" : "false"}};
        for (const bot_record& bot : routing.bots()) {
            std::string& text = result["bot " + bot.uuid];
            text = bot.sounding ? "sounding" : "";
            for (const std::string& engine : bot.engines) {
                text += " " + engine;
            }
        }
        return result;
    }

    void add_peers(const std::string& items) {
        routing.add_routing(items);
        known = knowledge();
        fusion.answer_with(
            [this](const std::string& request) { return script.hear("fusion", request); });
        for (const zorvin_entry& zorvin : routing.zorvins()) {
            services.push_back(std::make_unique<peers::core_service>(journal, zorvin.address));
            services.back()->answer_with(
                [this, name = services.back()->peer().name()](const std::string& request) {
                    return script.hear(name, request);
                });
        }
    }

    captured_output output;
    configuration settings{{"version", "v9-0-g0 (built on test)"}};
    client_state state;
    pacing pace;
    routing_table routing;
    zorvin_identity identity;
    rest_session session{"", 0, state};
    scanner scans{state, routing, session, identity, scanner::default_period_ms};
    engine_commands engines{state, routing};
    dispatcher commands{state, pace, routing, engines, scans, settings};
    std::map<std::string, std::string> known; // what knowledge is to return
    peer_script script;
    peers::journal journal;
    peers::fusion_daemon fusion{journal};
    std::vector<std::unique_ptr<peers::core_service>> services;
};

TEST_P(conversation, goes_as_written) {
    const json::document vector = read_vector(GetParam());
    add_peers(vector["routing"].GetString());
    for (const json::value& step : vector["steps"].GetArray()) {
        play(step);
    }
}

INSTANTIATE_TEST_SUITE_P(vectors, conversation, testing::ValuesIn(vector_files("")),
                         [](const auto& name) { return name.param; });
