// The conversations in vectors/: what arrives from the server, what the peers are asked, what is
// answered and logged, byte for byte, and what the client knows afterwards.
#include <map>
#include <memory>

#include <gtest/gtest.h>

#include "client/dispatcher.h"
#include "peers/core_service.h"
#include "peers/fusion_daemon.h"
#include "support/fixtures.h"
#include "support/vectors.h"

using namespace csi_receiver;

class conversation : public testing::TestWithParam<std::string> {
protected:
    void play(const json::value& step) {
        SCOPED_TRACE(json::write(step));
        const texts asked = script_peers(step);
        static_cast<void>(output.lines());
        state.scan_request = false;
        std::string reply;
        const std::string received = wire_text(step["receive"]);
        EXPECT_EQ(commands.parse_msg(received, reply), !step.HasMember("disconnects"));
        EXPECT_EQ(reply, step["reply"].IsNull() ? "" : wire_text(step["reply"]));
        EXPECT_EQ(heard(), asked);
        texts lines = {"zorvin_client::parse_msg receives: " + received};
        for_each(step, "log", [&](const auto& line) { lines.push_back(wire_text(line)); });
        EXPECT_EQ(output.lines(), lines);
        known["scan_request"] = "false";
        for_each_member(step, "changes", [this](const char* name, const auto& value) {
            known[name] = wire_text(value);
        });
        EXPECT_EQ(knowledge(), known);
    }

    /// Gives the peers their answers of the step, in the order of the requests. Returns these.
    texts script_peers(const json::value& step) {
        texts requests;
        texts answers;
        for_each(step, "asks", [&](const json::value& ask) {
            requests.push_back(wire_text(ask["to"]) + " " + wire_text(ask["request"]));
            answers.push_back(wire_text(ask["answer"]));
        });
        journal.clear();
        const auto answer = [this, answers](const std::string& /*request*/) {
            const std::size_t asked = journal.count("daemon", "");
            return asked <= answers.size() ? texts{answers[asked - 1]} : texts{"{}"};
        };
        fusion.answer_with(answer);
        for (const auto& service : services) {
            service->answer_with(answer);
        }
        return requests;
    }

    [[nodiscard]] texts heard() const {
        texts result;
        for (const peers::message& message : journal.select("daemon", "")) {
            result.push_back(message.to + " " + message.text);
        }
        return result;
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
        for (const zorvin_entry& zorvin : routing.zorvins()) {
            services.push_back(std::make_unique<peers::core_service>(journal, zorvin.address));
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
