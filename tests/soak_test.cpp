// The soak's checks: what they must report, and what they must accept. A soak that finds nothing
// proves something only if these tests pass.
#include <set>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "http/http_client.h"
#include "platform/json.h"
#include "platform/socket.h"
#include "platform/utilities.h"
#include "soak/hostile_server.h"
#include "soak/resource_monitor.h"
#include "soak/server_faults.h"
#include "soak/stranger.h"
#include "support/fixtures.h"

using namespace csi_soak;
using namespace std::chrono_literals;

namespace {

using checks = std::set<std::string>;

/// The names of the checks that fail while the function runs, as the reporter prints them.
checks failed_by(const std::function<void()>& action) {
    testing::internal::CaptureStdout();
    action();
    const std::string text = testing::internal::GetCapturedStdout();
    std::fputs(text.c_str(), stdout); // the test's own failures are in it, too
    checks result;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t begin = line.find("] FAIL ");
        if (begin != std::string::npos) {
            result.insert(line.substr(begin + 7, line.find(": ", begin) - begin - 7));
        }
    }
    return result;
}

std::vector<peers::routed_bot> two_bots() {
    peers::installation_options options;
    options.zorvins = 2;
    options.bots = 2;
    return peers::bots_of(options);
}

const std::map<std::string, test_command> commands = {
    {"attach", {"attach", R"({"cmd":"associate"})", "", {}, {}, {}}},
    {"version", {"version", "v", "is @", variable_part::version, {}, {}}},
    {"rate 25", {"rate", "r25", "done", {}, {}, 25}},
    {"rate", {"rate, query", "r", "rate @", variable_part::rate, {}, {}}},
    {"bot_info", {"bot_info", "b", "[@]", variable_part::bot_info, {}, {}}},
    {"engine", {"engine", "e", "now @", variable_part::engine_state, "fusion", {}}},
    {"malformed", {"malformed", "x", object_error, {}, {}, {}}},
    {"scan", {"scan", "s", "", {}, {}, {}}},
    {"disconnect", {"disconnect", "d", "", {}, {}, {}}},
};

const std::string attach = R"(<{"type":"zorvin","version":"v1"}|attach|)"
                           R"(<{"cmd":"associate","success":true})";

/// Plays a conversation whose steps are separated by "|": a name hands out that command, "<" is a
/// reply of the daemon's and "!" an unsolicited message, "+" begins and "-" ends a fault of the
/// server or of another peer.
void play(conversation_checker& checker, const std::string& steps) {
    for (const std::string& step : csi_receiver::split(steps, '|')) {
        const std::string rest = step.substr(1);
        if (step[0] == '<' || step[0] == '!') {
            checker.observe({{}, "daemon", "server", rest + (step[0] == '!' ? "\n" : "")});
        } else if (step[0] == '+') {
            rest == "server" ? checker.begin_excusing() : checker.begin_peer_fault(rest);
        } else if (step[0] == '-') {
            rest == "server" ? checker.end_excusing() : checker.end_peer_fault(rest);
        } else {
            if (step != "attach") {
                checker.plan(commands.at(step));
            }
            checker.observe({{}, "server", "daemon", commands.at(step).text});
        }
    }
}

} // namespace

TEST(soak_conversation, finds_what_is_wrong_and_nothing_else) {
    const std::string bot_1 = R"({"bot":101,"hwaddr":"02:00:00:00:00:65","chains":1})";
    const std::string bot_2 = R"({"bot":102,"hwaddr":"02:00:00:00:00:66","chains":1})";
    const std::string malformed = std::string("malformed|<") + object_error;
    const std::string no_engine = std::string("|<") + engine_error;
    const std::string scan_report = R"(!{"cmd":"scan","success":true,"reason":"complete","found":)";
    const std::string lost = "no command is lost";
    const std::string twice = "no command is answered twice";
    const std::string reply = "every reply is correct";
    const std::string message = "every message is correct";
    const struct {
        std::string steps; // after an attach
        checks failed;
    } rows[] = {
        {"version|<is v1|rate|<rate 10|rate 25|<done|rate|<rate 25|scan|engine|<now running", {}},
        {"bot_info|<[" + bot_1 + "," + bot_2 + "]|!{\"bot_info\":[" + bot_2 + "]}", {}},
        {malformed + "|" + scan_report + "[101]}|disconnect|" + attach, {}},
        {"version|scan", {lost}},
        {"version|" + attach, {lost}},
        {malformed + "|<" + object_error, {twice}},
        {"scan|<done", {twice}}, // "scan" has no reply
        {"version|<is v2", {reply}},
        {"version|<is v1 ", {reply}},
        {"version|<done", {reply}},
        {malformed + " ", {reply}},
        {"rate|<rate 25", {reply}},
        {"rate 25|<done|rate|<rate 10", {reply}},
        {"bot_info|<[" + bot_2 + "," + bot_1 + "]", {reply}},
        {"bot_info|<[" + bot_1 + bot_1 + "]", {reply}},
        {"engine|<now unknown", {reply}},
        {"engine" + no_engine, {reply}}, // its peer never failed
        {"+core 127.0.0.1|engine" + no_engine, {reply}},
        {"+fusion|-fusion|engine" + no_engine, {reply}}, // its peer no longer failed
        {"+fusion|engine|-fusion" + no_engine, {}},
        {R"(<{"type":"zorvin"})", {message}},
        {R"(<{"type":"zorvin","version":"v2"})", {message}},
        {scan_report + "[101,102,103]}", {message}}, // there are two Bots
        {"!{\"bot_info\":[" + bot_1 + "}", {message}},
        // A fault of the server may lose commands, and may cut a command short.
        {"+server|version|scan|-server|version|<is v1", {}},
        {"version|+server|-server|scan", {}},
        {"+server|-server|version|scan", {lost}},
        {std::string("+server|version|<") + object_error + "|<" + object_error, {}},
        {"+server|version|<is v2", {reply}},
        {std::string("version|<") + object_error, {reply}},
        // A lost command may have set the rate nevertheless.
        {"+server|rate 25|rate|<rate 25|rate|<rate 10", {}},
    };
    for (const auto& row : rows) {
        reporter report;
        conversation_checker checker(report, two_bots(), commands.at("attach").text);
        const checks failed = failed_by([&] { play(checker, attach + "|" + row.steps); });
        EXPECT_EQ(failed, row.failed) << row.steps;
    }
}

TEST(soak_conversation, losses_may_be_left_to_the_caller) {
    reporter report;
    conversation_checker checker(report, two_bots(), commands.at("attach").text);
    checker.leave_losses_to_caller();
    EXPECT_EQ(failed_by([&] { play(checker, attach + "|version|version|+server|-server|rate"); }),
              checks{});
    EXPECT_EQ(checker.counts().lost, 2U);
    EXPECT_EQ(checker.counts().lost_unexcused, 1U);
}

TEST(soak_conversation, measures_the_longest_answer_that_no_fault_excuses) {
    reporter report;
    conversation_checker checker(report, two_bots(), commands.at("attach").text);
    const auto pause = [](std::chrono::milliseconds time) {
        const stopwatch watch;
        wait_until([&] { return watch.elapsed() >= time; });
    };
    play(checker, attach + "|malformed");
    pause(30ms);
    play(checker, std::string("<") + object_error + "|rate 25|<done|+server|rate");
    EXPECT_FALSE(checker.awaiting_reply());
    pause(60ms);
    play(checker, "<rate 25");
    EXPECT_GE(checker.counts().longest_answer, 30ms);
    EXPECT_EQ(checker.counts().slowest_kind, "malformed");
}

namespace {

/// A log such as the daemon writes, and its reader.
struct log_file {
    void add(const std::string& text) const {
        std::ofstream(directory.path + "/log", std::ios::app) << text;
    }
    void rotate() const {
        csi_receiver::rotate(directory.path + "/log");
        add("[1] log rotated\n");
    }

    temporary_directory directory;
    reporter report;
    log_reader log{directory.path + "/log", report};
};

} // namespace

TEST(soak_log, is_read_across_rotations) {
    log_file file;
    file.log.read(); // it does not exist yet
    file.add("[1] request to http://a failed: x\n[1] 127.0.0.1: failed to se");
    file.log.read();
    file.add("nd {\"rate\":0}\n[1] adding a\n[1] adding b\n");
    file.log.read();
    EXPECT_TRUE(file.log.scanning());
    file.add("[1] [ a ] <-- request to http://a failed: inside a command\n");
    file.rotate();
    file.add("[1] Scan complete\n");
    file.rotate();
    file.add("[1] request to http://a failed: y\n");
    EXPECT_EQ(failed_by([&] { file.log.read(); }), checks{});
    const log_reader::counters& counts = file.log.counts();
    EXPECT_EQ(counts.lines, 9U);
    EXPECT_EQ(counts.failed_requests, 2U);
    EXPECT_EQ(counts.unanswered_stops, 1U);
    EXPECT_EQ(counts.rotations, 2U);
    EXPECT_EQ(counts.reported_scans, 1U);
}

TEST(soak_log, times_that_go_back_are_counted) {
    log_file file;
    file.add("[2038-1-19_3:14:7] a\n[2038-1-19_3:14:8] b\nc\n[2038-1-18_23:59:59] d\n");
    file.log.read();
    const log_reader::counters& counts = file.log.counts();
    EXPECT_EQ(counts.first_time, 0x7fffffff);
    EXPECT_EQ(counts.last_time, 0x7fffffff - 3 * 3600 - 14 * 60 - 8);
    EXPECT_EQ(counts.backward_steps, 1U);
}

TEST(soak_log, must_have_no_gaps_and_stay_small) {
    const checks too_large = {"the log stays small"};
    const struct {
        int rotations; // between two reads
        const char* grown;
        std::uintmax_t size;
        checks failed;
    } rows[] = {
        {3, "/log.3", log_reader::max_file_bytes, {}},
        {4, "/log.3", 1, {"the log is read without gaps"}},
        {0, "/log", log_reader::max_file_bytes + 1, too_large},
        {1, "/log.1", log_reader::max_file_bytes + 1, too_large},
        {0, "/log.4", 1, too_large},
    };
    for (const auto& row : rows) {
        log_file file;
        file.add("[1] first\n");
        file.log.read();
        for (int rotation = 0; rotation < row.rotations; ++rotation) {
            file.rotate();
        }
        const std::string grown = file.directory.path + row.grown;
        std::ofstream(grown, std::ios::app).close();
        std::filesystem::resize_file(grown, row.size);
        EXPECT_EQ(failed_by([&] { file.log.read(); }), row.failed) << row.grown;
    }
}

TEST(soak_resources, leaks_are_found) {
    temporary_directory directory;
    // Shells instead of the daemon. One of them leaks once a certain file exists.
    const std::string shell = "#!/bin/sh\n";
    const std::string take = "$(printf %060000d 0); sleep 0.1; done\n";
    const std::string level = directory.write("level", shell + "while :; do x=" + take);
    const std::string leaking =
        directory.write("leaking", shell + "until [ -e \"$1.leak\" ]; do sleep 0.1; done\n" +
                                       "exec 4</dev/null 5</dev/null; while :; do x=$x" + take);
    chmod(level.c_str(), 0700);
    chmod(leaking.c_str(), 0700);
    const daemon_process daemons[] = {{level, directory.path + "/1", ""},
                                      {leaking, directory.path + "/2", ""}};
    reporter report;
    resource_monitor monitors[] = {resource_monitor(report, 50ms), resource_monitor(report, 50ms)};
    for (std::size_t turn = 0; turn < 44; ++turn) {
        if (turn == 16) {
            const std::size_t before = daemons[1].usage().descriptors;
            static_cast<void>(directory.write("2/soak.conf.leak", ""));
            ASSERT_TRUE(wait_until([&] { return daemons[1].usage().descriptors == before + 2; }));
        }
        for (const std::size_t at : {0U, 1U}) {
            EXPECT_TRUE(
                wait_until([&] { return monitors[at].sample_if_due(daemons[at], turn * 50); }));
        }
    }
    EXPECT_EQ(failed_by([&] { monitors[0].judge(); }), checks{});
    EXPECT_EQ(failed_by([&] { monitors[1].judge(); }),
              (checks{"descriptors stay level", "memory grows only by the header lists"}));
    EXPECT_EQ(failed_by([&] { resource_monitor(report).judge(); }),
              checks{"the run is long enough"});
}

namespace {

/// The soak's installation, with an HTTP client instead of the daemon.
struct soak_faults : testing::Test {
    soak_faults() {
        options.zorvins = 2;
        options.http_port = 0;
        options.fusion = true;
        installation.emplace(journal, options);
        journal.on_message(
            [this](const peers::message& message) { conversation.observe(message); });
    }
    void request(const std::string& path, const std::string& body) {
        curl_http::http_client http(installation->server().port());
        const std::string url = "http://127.0.0.1:/v2/zorvins/" + path;
        static_cast<void>(body.empty() ? http.get(url) : http.post_json(url, body));
    }
    void attach_again() {
        request("attach", R"({"type":"zorvin","version":"v1"})");
        request("1/msg", R"({"cmd":"associate","success":true})");
    }
    [[nodiscard]] bool is_healthy() {
        const peers::rest_server_faults faults = installation->server().faults();
        return installation->server().running() && !faults.silent && faults.delay.count() == 0 &&
               !faults.cut && !faults.status;
    }

    log_file file;
    conversation_checker conversation{file.report, two_bots(), commands.at("attach").text};
    peers::journal journal;
    peers::installation_options options;
    std::optional<peers::installation> installation;
};

} // namespace

TEST_F(soak_faults, an_outage_is_logged_once_and_the_daemon_comes_back) {
    const checks lines = {"an outage is logged once"};
    const checks session = {"only an outage ends the session"};
    enum kind { stopped, silent, slow, cutting, error_status, hostile = 6, hostile_success = 7 };
    enum reaction { polling, attaching, disconnected, none };
    const struct {
        kind fault;
        int lines; // that the daemon logs
        reaction then;
        checks failed;
    } rows[] = {
        {stopped, 1, attaching, {}},
        {stopped, 0, attaching, lines},
        {stopped, 2, attaching, lines},
        {silent, 1, polling, {}},
        {silent, 2, polling, lines},
        {cutting, 0, polling, {}},
        {slow, 0, polling, {}},
        {slow, 1, polling, lines},
        {slow, 0, attaching, session},
        {error_status, 0, attaching, session},
        {error_status, 0, disconnected, {}},
        {hostile, 1, attaching, {}},
        {hostile_success, 2, attaching, {}},
        {hostile_success, 3, attaching, lines},
        {cutting, 0, none, {"the daemon comes back"}},
    };
    const auto go_through = [this](server_faults& faults, const auto& row) {
        attach_again();
        faults.begin(row.fault, 0ms);
        EXPECT_FALSE(is_healthy());
        for (int line = 0; line < row.lines; ++line) {
            file.add("[1] request to http://a failed: x\n");
        }
        if (row.then == disconnected) {
            play(conversation, "disconnect");
        }
        faults.step(steady_clock::now());
        EXPECT_TRUE(is_healthy());
        faults.step(steady_clock::now() + (row.then == none ? 31s : 29s));
        EXPECT_FALSE(faults.recovered()) << "the daemon has not come back yet";
        if (row.then == attaching || row.then == disconnected) {
            attach_again();
        } else {
            request("1/msg", "");
        }
        faults.step(steady_clock::now());
        EXPECT_TRUE(faults.recovered());
        play(conversation, "malformed");
        EXPECT_TRUE(conversation.awaiting_reply()) << "losses are no longer excused";
        play(conversation, std::string("<") + object_error);
    };
    for (const auto& row : rows) {
        server_faults faults(*installation, conversation, file.log, file.report, 1);
        EXPECT_EQ(failed_by([&] { go_through(faults, row); }), row.failed)
            << row.fault << " " << row.lines;
    }
}

TEST(soak_attackers, a_hostile_server_gives_no_valid_answer) {
    const struct {
        hostile_answer kind;
        bool succeeds; // as far as HTTP goes
    } rows[] = {
        {hostile_answer::too_long_content_length, false},
        {hostile_answer::too_short_content_length, true},
        {hostile_answer::invalid_content_length, false},
        {hostile_answer::endless_headers, false},
        {hostile_answer::slow_bytes, false},
        {hostile_answer::redirect_circle, false},
        {hostile_answer::redirect_to_ftp, false},
    };
    for (const auto& row : rows) {
        hostile_server server(0, row.kind);
        curl_http::http_client http(server.port(), {500ms, 500ms, 500ms});
        const std::string body = http.post_json("http://127.0.0.1:/v2/zorvins/attach", "{}");
        EXPECT_EQ(http.connected(), row.succeeds) << static_cast<int>(row.kind);
        EXPECT_FALSE(json::parse(body).IsObject()) << body;
        EXPECT_EQ(server.answers(), row.kind == hostile_answer::redirect_circle ? 11U : 1U);
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
    const bool complete = wait_until([&] {
        std::vector<char> buffer(100);
        std::string address;
        const ssize_t count = csi_receiver::recv_from(daemon.get(), buffer, address, nullptr);
        EXPECT_EQ(address, "127.0.0.99");
        received.insert(std::string(buffer.data(), static_cast<std::size_t>(count)));
        return received.size() == 4;
    });
    EXPECT_TRUE(complete);
    EXPECT_EQ(received.count(R"({"success":"yes"})"), 1U);
}
