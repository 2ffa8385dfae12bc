// The soak's checks: what they must report, and what they must accept. A soak that finds nothing
// proves something only if these tests pass.
#include <regex>
#include <set>

#include <gtest/gtest.h>

#include "http/http_client.h"
#include "platform/json.h"
#include "platform/socket.h"
#include "platform/utilities.h"
#include "soak/contract_checker.h"
#include "soak/hostile_server.h"
#include "soak/resource_monitor.h"
#include "soak/sample_file.h"
#include "soak/server_faults.h"
#include "soak/stranger.h"
#include "support/fixtures.h"
#include "support/vectors.h"

using namespace csi_soak;
using namespace std::chrono_literals;

namespace {

/// The names of the checks that fail while the function runs, as the reporter prints them.
std::string failed_by(const std::function<void()>& action) {
    testing::internal::CaptureStdout();
    action();
    const std::string text = testing::internal::GetCapturedStdout();
    std::fputs(text.c_str(), stdout); // the test's own failures are in it, too
    static const std::regex failure(R"(\] FAIL (.*?): )");
    std::string names;
    for (std::sregex_iterator fail(text.begin(), text.end(), failure), end; fail != end; ++fail) {
        names += (names.empty() ? "" : "; ") + fail->str(1);
    }
    return names;
}

/// Runs the rows of a file in vectors/soak/. Each names the check that is to fail, if one is.
template<class function>
void run_rows(const std::string& name, function run) {
    for_each(read_vector("soak/" + name), "rows", [&](const json::value& row) {
        SCOPED_TRACE(json::write(row));
        EXPECT_EQ(failed_by([&] { run(row); }), json::find_string(row, "fails").value_or(""));
    });
}

/// The kinds of steps by their first word, each with what it does with the other words.
using step_kinds = std::map<std::string, std::function<void(const std::string&)>>;

template<class player>
void play_steps(const player& played, const json::value& row) {
    for_each(row, "steps", [&](const json::value& step) {
        const std::string words = named_text(step);
        const std::size_t blank = words.find(' ');
        played.kinds.at(words.substr(0, blank))(
            words.substr(std::min(blank, words.size() - 1) + 1));
    });
}

peers::installation_options two_zorvins() {
    peers::installation_options options;
    options.zorvins = 2;
    options.bots = 2;
    options.http_port = 0;
    options.fusion = true;
    return options;
}

const std::string attach = R"({"cmd":"associate"})";

const std::map<std::string, test_command> commands = {
    {"version", {"version", "v", "is @", variable_part::version, {}, {}}},
    {"rate 25", {"rate", "r25", "done", {}, {}, 25}},
    {"rate", {"rate, query", "r", "rate @", variable_part::rate, {}, {}}},
    {"bot_info", {"bot_info", "b", "[@]", variable_part::bot_info, {}, {}}},
    {"engine", {"engine", "e", "now @", variable_part::engine_state, "fusion", {}}},
    {"malformed", {"malformed", "x", object_error, {}, {}, {}}},
    {"disconnect", {"disconnect", "d", "", {}, {}, {}}},
};

/// A conversation of daemon and server, and its checker.
struct checked_conversation {
    void command(const std::string& text) { checker.observe({{}, "server", "daemon", text}); }
    void sent(const std::string& text) { checker.observe({{}, "daemon", "server", text}); }
    void attached() {
        sent(R"({"type":"zorvin","version":"v1"})");
        command(attach);
        sent(R"({"cmd":"associate","success":true})");
    }
    void planned(const std::string& name) {
        checker.plan(commands.at(name));
        command(commands.at(name).text);
    }
    [[nodiscard]] steady_clock::duration longest() const { return checker.counts().longest_answer; }

    reporter report;
    conversation_checker checker{report, peers::bots_of(two_zorvins()), attach};
    const step_kinds kinds{
        {"attach", [this](const auto&) { attached(); }},
        {"command", [this](const auto& name) { planned(name); }},
        {"reply", [this](const auto& text) { sent(text); }},
        {"message", [this](const auto& text) { sent(text + "\n"); }},
        {"judging", [this](const auto&) { checker.leave_losses_to_caller(); }},
        {"excusing", [this](const auto&) { checker.begin_excusing(); }},
        {"excused", [this](const auto&) { checker.end_excusing(); }},
        {"failing", [this](const auto& peer) { checker.begin_peer_fault(peer); }},
        {"failed", [this](const auto& peer) { checker.end_peer_fault(peer); }},
        {"pause", [](const auto& ms) { std::this_thread::sleep_for(std::stoi(ms) * 1ms); }},
        {"idle", [this](const auto&) { EXPECT_FALSE(checker.awaiting_reply()); }},
        {"lost", [this](const auto& n) { EXPECT_EQ(checker.counts().lost, std::stoul(n)); }},
        {"unexcused",
         [this](const auto& n) { EXPECT_EQ(checker.counts().lost_unexcused, std::stoul(n)); }},
        {"slowest", [this](const auto& kind) { EXPECT_EQ(checker.counts().slowest_kind, kind); }},
        {"longest", [this](const auto& ms) { EXPECT_GE(longest(), std::stoi(ms) * 1ms); }},
    };
};

/// A log such as the daemon writes, and its reader.
struct log_file {
    void add(const std::string& text) const { std::ofstream(path, std::ios::app) << text; }
    void grow(const std::string& name, std::uintmax_t size) const {
        std::ofstream(directory.path + "/" + name, std::ios::app).close();
        std::filesystem::resize_file(directory.path + "/" + name, size);
    }

    temporary_directory directory;
    const std::string path = directory.path + "/log";
    reporter report;
    log_reader log{path, report};
    const log_reader::counters& counts = log.counts();
    const step_kinds kinds{
        {"add", [this](const auto& text) { add(text); }},
        {"rotate", [this](const auto&) { csi_receiver::rotate(path); }},
        {"fill", [this](const auto& name) { grow(name, log_reader::max_file_bytes); }},
        {"overfill", [this](const auto& name) { grow(name, log_reader::max_file_bytes + 1); }},
        {"read", [this](const auto&) { log.read(); }},
        {"lines", [this](const auto& n) { EXPECT_EQ(counts.lines, std::stoul(n)); }},
        {"failures", [this](const auto& n) { EXPECT_EQ(counts.failed_requests, std::stoul(n)); }},
        {"stops", [this](const auto& n) { EXPECT_EQ(counts.unanswered_stops, std::stoul(n)); }},
        {"rotations", [this](const auto& n) { EXPECT_EQ(counts.rotations, std::stoul(n)); }},
        {"scans", [this](const auto& n) { EXPECT_EQ(counts.reported_scans, std::stoul(n)); }},
        {"first", [this](const auto& time) { EXPECT_EQ(counts.first_time, std::stol(time)); }},
        {"last", [this](const auto& time) { EXPECT_EQ(counts.last_time, std::stol(time)); }},
        {"backward", [this](const auto& n) { EXPECT_EQ(counts.backward_steps, std::stoul(n)); }},
        {"scanning", [this](const auto&) { EXPECT_TRUE(log.scanning()); }},
    };
};

/// The soak's installation, with an HTTP client instead of the daemon.
struct soak_faults : testing::Test {
    soak_faults() {
        journal.on_message([this](const auto& message) { conversation.checker.observe(message); });
    }
    void request(const std::string& path, const std::string& body) {
        curl_http::http_client http(installation.server().port());
        const std::string url = "http://127.0.0.1:/v2/zorvins/" + path;
        static_cast<void>(body.empty() ? http.get(url) : http.post_json(url, body));
    }
    void attach_again() {
        request("attach", R"({"type":"zorvin","version":"v1"})");
        request("1/msg", R"({"cmd":"associate","success":true})");
    }
    [[nodiscard]] bool is_healthy() {
        const peers::rest_server_faults faults = installation.server().faults();
        return installation.server().running() && !faults.silent && faults.delay.count() == 0 &&
               !faults.cut && !faults.status;
    }

    log_file file;
    checked_conversation conversation;
    peers::journal journal;
    peers::installation installation{journal, two_zorvins()};
};

} // namespace

TEST(soak_conversation, finds_what_is_wrong_and_nothing_else) {
    run_rows("conversations", [](const auto& row) { play_steps(checked_conversation(), row); });
}

TEST(soak_contract, finds_what_is_wrong_and_nothing_else) {
    run_rows("contract", [](const json::value& row) {
        reporter report;
        contract_checker checker(report);
        for_each(row, "messages", [&checker](const json::value& one) {
            checker.observe({{}, wire_text(one[0]), wire_text(one[1]), wire_text(one[2])});
        });
        EXPECT_EQ(checker.checked(), row["checked"].GetUint());
    });
}

TEST(soak_log, is_read_across_rotations_without_gaps_and_must_stay_small) {
    run_rows("log", [](const auto& row) { play_steps(log_file(), row); });
}

TEST(soak_resources, leaks_are_found) {
    const temporary_directory directory;
    const std::string shell = CSI_RECEIVER_VECTORS "/soak/leaking_daemon";
    const daemon_process daemons[] = {{shell, directory.path + "/1", ""},
                                      {shell, directory.path + "/2", ""}};
    reporter report;
    resource_monitor monitors[] = {resource_monitor(report, 50ms), resource_monitor(report, 50ms)};
    for (std::size_t posts = 0; posts < 2200; posts += 50) {
        if (posts == 800) {
            const std::size_t before = daemons[1].usage().descriptors;
            directory.write("2/soak.conf.leak", "");
            ASSERT_TRUE(wait_until([&] { return daemons[1].usage().descriptors == before + 2; }));
        }
        for (const std::size_t at : {0U, 1U}) {
            EXPECT_TRUE(wait_until([&] { return monitors[at].sample_if_due(daemons[at], posts); }));
        }
    }
    EXPECT_EQ(failed_by([&] { monitors[0].judge(); }), "");
    EXPECT_EQ(failed_by([&] { monitors[1].judge(); }),
              "descriptors stay level; memory grows only by the header lists");
    EXPECT_EQ(failed_by([&] { resource_monitor(report).judge(); }), "the run is long enough");
}

TEST_F(soak_faults, an_outage_is_logged_once_and_the_daemon_comes_back) {
    const std::map<std::string, std::size_t> kinds = {
        {"stopped", 0},      {"silent", 1},  {"slow", 2},           {"cutting", 3},
        {"error status", 4}, {"hostile", 6}, {"hostile success", 7}};
    run_rows("outages", [&](const json::value& row) {
        server_faults faults(installation, conversation.checker, file.log, file.report, 1);
        const std::string then = row["then"].GetString();
        attach_again();
        faults.begin(kinds.at(row["fault"].GetString()), 0ms);
        EXPECT_FALSE(is_healthy());
        file.add(row["log"].GetString());
        play_steps(conversation, row);
        faults.step(steady_clock::now());
        EXPECT_TRUE(is_healthy());
        faults.step(steady_clock::now() + (then == "poll late" ? 31s : 29s));
        EXPECT_FALSE(faults.recovered()) << "the daemon has not come back yet";
        then == "attach" ? attach_again() : request("1/msg", "");
        faults.step(steady_clock::now());
        EXPECT_TRUE(faults.recovered());
        conversation.planned("malformed");
        EXPECT_TRUE(conversation.checker.awaiting_reply()) << "losses are no longer excused";
        conversation.sent(object_error);
    });
}

TEST(soak_attackers, a_hostile_server_gives_no_valid_answer) {
    using kinds = hostile_answer;
    for (const hostile_answer kind :
         {kinds::too_long_content_length, kinds::too_short_content_length,
          kinds::invalid_content_length, kinds::endless_headers, kinds::slow_bytes,
          kinds::redirect_circle, kinds::redirect_to_ftp}) {
        hostile_server server(0, kind);
        const bool never_ends = kind == kinds::too_long_content_length ||
                                kind == kinds::endless_headers || kind == kinds::slow_bytes;
        curl_http::http_client http(server.port(), {never_ends ? 500ms : 20'000ms, 0ms, 0ms});
        const std::string body = http.post_json("http://127.0.0.1:/v2/zorvins/attach", "{}");
        EXPECT_EQ(http.connected(), kind == kinds::too_short_content_length)
            << static_cast<int>(kind);
        EXPECT_FALSE(json::parse(body).IsObject()) << body;
        EXPECT_EQ(server.answers(), kind == kinds::redirect_circle ? 11U : 1U);
        EXPECT_EQ(server.waiting_clients(), 0U);
    }
}

TEST(soak_attackers, a_client_that_waits_for_a_greeting_is_noticed) {
    hostile_server server(0, hostile_answer::redirect_to_ftp);
    const csi_receiver::descriptor client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_TRUE(csi_receiver::connect_address(client.get(), "127.0.0.1", server.port()));
    EXPECT_TRUE(wait_until([&] { return server.waiting_clients() == 1; }));
}

TEST(soak_attackers, a_stranger_reaches_every_open_port) {
    const peers::descriptor daemon = peers::bind_udp("127.0.0.1", 0);
    reporter report;
    stranger visitor(report, 1);
    visitor.step(steady_clock::now() + 6s);
    std::set<std::string> received;
    EXPECT_TRUE(wait_until([&] {
        std::vector<char> buffer(100);
        std::string address;
        const ssize_t count = csi_receiver::recv_from(daemon.get(), buffer, address, nullptr);
        EXPECT_EQ(address, "127.0.0.99");
        received.insert(std::string(buffer.data(), static_cast<std::size_t>(count)));
        return received.size() == 4;
    }));
    EXPECT_EQ(received.count(R"({"success":"yes"})"), 1U);
}

TEST(soak_samples, go_to_the_file_once_per_second) {
    const temporary_directory directory;
    const std::string path = directory.path + "/samples.csv";
    sample_file samples(path);
    const steady_clock::time_point start = steady_clock::now();
    for (const auto after : {0ms, 999ms, 1000ms}) {
        if (samples.is_due(start + after)) {
            samples.add(start + after, {10, 2, 2048}, 7, "server slow", "");
        }
    }
    EXPECT_TRUE(std::regex_match(
        read_file(path),
        std::regex("seconds,anonymous_kib,descriptors,threads,replies,server_fault,"
                   "peer_fault\n0.*,2,10,2,7,server slow,\n1.*,2,10,2,7,server "
                   "slow,\n")));
    EXPECT_FALSE(sample_file("").is_due(start + 1h));
    EXPECT_THROW(sample_file(directory.path), std::runtime_error);
}
