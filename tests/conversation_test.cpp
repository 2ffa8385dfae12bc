// The conversations in vectors/: what arrives from the server, what the peers are asked, what is
// answered, byte for byte.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <set>

#include <gtest/gtest.h>

#include "client/zorvin_client.h"
#include "peers/core_service.h"
#include "peers/fusion_daemon.h"
#include "support/fixtures.h"

using namespace csi_receiver;
using texts = std::vector<std::string>;

namespace {

/// A string stands for itself, so that rubbish can be told; everything else for its compact text.
std::string wire_text(const json::value& told) {
    return told.IsString() ? told.GetString() : json::write(told);
}

std::vector<std::string> vector_files() {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(CSI_RECEIVER_VECTORS)) {
        names.push_back(file.path().stem());
    }
    std::sort(names.begin(), names.end());
    return names;
}

json::document read_vector(const std::string& name) {
    std::ifstream file(std::string(CSI_RECEIVER_VECTORS) + "/" + name + ".json");
    std::ostringstream text;
    text << file.rdbuf();
    return json::parse(text.str());
}

/// What the peers are to answer in a step, and what they heard.
class peer_script {
public:
    void begin(const json::value* asks) {
        const std::lock_guard<std::mutex> lock(mutex_);
        expected_.clear();
        answers_.clear();
        heard_.clear();
        if (asks == nullptr) {
            return;
        }
        for (const json::value& ask : asks->GetArray()) {
            expected_.push_back(wire_text(ask["to"]) + " " + wire_text(ask["request"]));
            answers_.push_back(wire_text(ask["answer"]));
        }
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
        script.begin(json::find(step, "asks"));
        static_cast<void>(output.lines());
        std::string reply;
        const std::string received = wire_text(step["receive"]);
        EXPECT_EQ(client->parse_msg(received, reply), !step.HasMember("disconnects"));
        EXPECT_EQ(reply, step["reply"].IsNull() ? "" : wire_text(step["reply"]));
        script.check();
        texts lines = output.lines();
        EXPECT_EQ(lines.at(0), "zorvin_client::parse_msg receives: " + received);
        if (const json::value* log = json::find(step, "log")) {
            lines.erase(lines.begin());
            texts expected;
            for (const json::value& line : log->GetArray()) {
                expected.emplace_back(line.GetString());
            }
            EXPECT_EQ(lines, expected);
        }
    }

    void add_peers(const std::string& routing) {
        client->routing().add_routing(routing);
        fusion.answer_with(
            [this](const std::string& request) { return script.hear("fusion", request); });
        for (const zorvin_entry& zorvin : client->routing().zorvins()) {
            services.push_back(std::make_unique<peers::core_service>(journal, zorvin.address));
            services.back()->answer_with(
                [this, name = services.back()->peer().name()](const std::string& request) {
                    return script.hear(name, request);
                });
        }
    }

    captured_output output;
    configuration settings{{"version", "v9-0-g0 (built on test)"}};
    std::unique_ptr<zorvin_client> client = std::make_unique<zorvin_client>(-1, settings);
    peer_script script;
    peers::journal journal;
    peers::fusion_daemon fusion{journal};
    std::vector<std::unique_ptr<peers::core_service>> services;
};

TEST_P(conversation, goes_as_written) {
    const json::document vector = read_vector(GetParam());
    ASSERT_TRUE(vector.IsObject()) << GetParam() << " is no JSON object";
    add_peers(vector["routing"].GetString());
    for (const json::value& step : vector["steps"].GetArray()) {
        play(step);
    }
    script.begin(nullptr);
    client.reset();
}

INSTANTIATE_TEST_SUITE_P(vectors, conversation, testing::ValuesIn(vector_files()),
                         [](const auto& name) { return name.param; });
