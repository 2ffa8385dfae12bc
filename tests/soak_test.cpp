// The soak's checkers: what they must find, and what they must let pass. A soak without a violation
// says nothing unless each of these is one.
#include <set>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "http/http_client.h"
#include "platform/utilities.h"
#include "soak/faults.h"
#include "soak/watch.h"
#include "support/fixtures.h"

using namespace csi_soak;
using namespace std::chrono_literals;

namespace {

using checks = std::set<std::string>;

/// The names of the checks that fail while this runs, as the report prints them.
checks violated_by(const std::function<void()>& what) {
    testing::internal::CaptureStdout();
    what();
    const std::string text = testing::internal::GetCapturedStdout();
    std::fputs(text.c_str(), stdout); // failures of the test are among it
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

const std::map<std::string, soak_command> commands = {
    {"attach", {"attach", R"({"cmd":"associate"})", "", {}, {}, {}}},
    {"version", {"version", "v", "is @", soak_gap::version, {}, {}}},
    {"rate 25", {"rate", "r25", "done", {}, {}, 25}},
    {"rate", {"rate, asked for", "r", "rate @", soak_gap::rate, {}, {}}},
    {"bot_info", {"bot_info", "b", "[@]", soak_gap::bot_info, {}, {}}},
    {"engine", {"engine", "e", "now @", soak_gap::engine_state, "fusion", {}}},
    {"rubbish", {"rubbish", "x", object_error, {}, {}, {}}},
    {"scan", {"scan", "s", "", {}, {}, {}}},
    {"disconnect", {"disconnect", "d", "", {}, {}, {}}},
};

const std::string attach = R"(<{"type":"zorvin","version":"v1"}|attach|)"
                           R"(<{"cmd":"associate","success":true})";

/// Plays a conversation, whose steps "|" separates: the server hands out the command of that name,
/// the daemon says (<) or says unasked (!) something, a fault of the server or another peer
/// begins (+) or ends (-).
void play(soak_record& record, const std::string& steps) {
    for (const std::string& step : csi_receiver::split(steps, '|')) {
        const std::string rest = step.substr(1);
        if (step[0] == '<' || step[0] == '!') {
            record.see({{}, "daemon", "server", rest + (step[0] == '!' ? "\n" : "")});
        } else if (step[0] == '+') {
            rest == "server" ? record.begin_excuse() : record.begin_peer_fault(rest);
        } else if (step[0] == '-') {
            rest == "server" ? record.end_excuse() : record.end_peer_fault(rest);
        } else {
            if (step != "attach") {
                record.plan(commands.at(step));
            }
            record.see({{}, "server", "daemon", commands.at(step).text});
        }
    }
}

} // namespace

TEST(soak_record, conversations_and_what_is_wrong_with_them) {
    const std::string bot_1 = R"({"bot":101,"hwaddr":"02:00:00:00:00:65","chains":1})";
    const std::string bot_2 = R"({"bot":102,"hwaddr":"02:00:00:00:00:66","chains":1})";
    const std::string rubbish = std::string("rubbish|<") + object_error;
    const std::string no_engine = std::string("|<") + engine_error;
    const std::string report = R"(!{"cmd":"scan","success":true,"reason":"complete","found":)";
    const std::string lost = "no command is lost";
    const std::string twice = "no command is answered twice";
    const std::string reply = "every reply is right";
    const std::string message = "every message is right";
    const struct {
        std::string steps; // after an attach
        checks violated;
    } rows[] = {
        {"version|<is v1|rate|<rate 10|rate 25|<done|rate|<rate 25|scan|engine|<now running", {}},
        {"bot_info|<[" + bot_1 + "," + bot_2 + "]|!{\"bot_info\":[" + bot_2 + "]}", {}},
        {rubbish + "|" + report + "[101]}|disconnect|" + attach, {}},
        {"version|scan", {lost}},
        {"version|" + attach, {lost}},
        {rubbish + "|<" + object_error, {twice}},
        {"scan|<done", {twice}}, // none is owed
        {"version|<is v2", {reply}},
        {"version|<is v1 ", {reply}},
        {"version|<done", {reply}},
        {rubbish + " ", {reply}},
        {"rate|<rate 25", {reply}},
        {"rate 25|<done|rate|<rate 10", {reply}},
        {"bot_info|<[" + bot_2 + "," + bot_1 + "]", {reply}},
        {"bot_info|<[" + bot_1 + bot_1 + "]", {reply}},
        {"engine|<now unknown", {reply}},
        {"engine" + no_engine, {reply}}, // its peer is well,
        {"+core 127.0.0.1|engine" + no_engine, {reply}},
        {"+fusion|-fusion|engine" + no_engine, {reply}}, // or was well again
        {"+fusion|engine|-fusion" + no_engine, {}},
        {R"(<{"type":"zorvin"})", {message}},
        {R"(<{"type":"zorvin","version":"v2"})", {message}},
        {report + "[101,102,103]}", {message}}, // of two Bots
        {"!{\"bot_info\":[" + bot_1 + "}", {message}},
        // In a fault of the server a command may be lost, and a body that was cut is no JSON.
        {"+server|version|scan|-server|version|<is v1", {}},
        {"version|+server|-server|scan", {}},
        {"+server|-server|version|scan", {lost}},
        {std::string("+server|version|<") + object_error + "|<" + object_error, {}},
        {"+server|version|<is v2", {reply}},
        {std::string("version|<") + object_error, {reply}},
        // One that is lost may have set the rate all the same.
        {"+server|rate 25|rate|<rate 25|rate|<rate 10", {}},
    };
    for (const auto& row : rows) {
        soak_report told;
        soak_record record(told, soak_bots(2), commands.at("attach").text);
        const checks seen = violated_by([&] { play(record, attach + "|" + row.steps); });
        EXPECT_EQ(seen, row.violated) << row.steps;
    }
}

TEST(soak_record, knows_the_longest_wait_that_nothing_excuses) {
    soak_report told;
    soak_record record(told, soak_bots(2), commands.at("attach").text);
    const auto let_pass = [](std::chrono::milliseconds time) {
        const stopwatch watch;
        wait_until([&] { return watch.elapsed() >= time; });
    };
    play(record, attach + "|rubbish");
    let_pass(30ms);
    play(record, std::string("<") + object_error + "|rate 25|<done|+server|rate");
    EXPECT_FALSE(record.owes_reply());
    let_pass(60ms);
    play(record, "<rate 25");
    EXPECT_GE(record.count().longest_answer, 30ms);
    EXPECT_EQ(record.count().longest_kind, "rubbish");
}

namespace {

/// A log that a daemon might write, and its reader.
struct log_file {
    void add(const std::string& text) const {
        std::ofstream(directory.path + "/log", std::ios::app) << text;
    }
    void rotate() const {
        csi_receiver::rotate(directory.path + "/log");
        add("[1] log rotated\n");
    }

    temporary_directory directory;
    soak_report report;
    soak_log log{directory.path + "/log", report};
};

} // namespace

TEST(soak_log, follows_a_log_across_its_rotations) {
    log_file file;
    file.log.read(); // there is none yet
    file.add("[1] request to http://a failed: x\n[1] 127.0.0.1: failed to se");
    file.log.read();
    file.add("nd {\"rate\":0}\n[1] adding a\n[1] adding b\n");
    file.log.read();
    EXPECT_TRUE(file.log.scanning());
    file.add("[1] [ a ] <-- request to http://a failed: told by a command\n");
    file.rotate();
    file.add("[1] Scan complete\n");
    file.rotate();
    file.add("[1] request to http://a failed: y\n");
    EXPECT_EQ(violated_by([&] { file.log.read(); }), checks{});
    const soak_log::counts& count = file.log.count();
    EXPECT_EQ(count.lines, 9U);
    EXPECT_EQ(count.failures, 2U);
    EXPECT_EQ(count.stops, 1U);
    EXPECT_EQ(count.rotations, 2U);
    EXPECT_EQ(count.scans, 1U);
}

TEST(soak_log, finds_gaps_and_too_much) {
    const checks too_much = {"the log stays small"};
    const struct {
        int rotations; // between two looks
        const char* grown;
        std::uintmax_t size;
        checks violated;
    } rows[] = {
        {3, "/log.3", soak_log::largest_file, {}},
        {4, "/log.3", 1, {"the log is read without gaps"}},
        {0, "/log", soak_log::largest_file + 1, too_much},
        {1, "/log.1", soak_log::largest_file + 1, too_much},
        {0, "/log.4", 1, too_much},
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
        EXPECT_EQ(violated_by([&] { file.log.read(); }), row.violated) << row.grown;
    }
}

TEST(soak_watch, finds_what_is_held_and_never_given_back) {
    temporary_directory directory;
    // Shells in the daemon's place; a file beside their configuration makes one of them leak.
    const std::string shell = "#!/bin/sh\n";
    const std::string take = "$(printf %060000d 0); sleep 0.1; done\n";
    const std::string level = directory.write("level", shell + "while :; do x=" + take);
    const std::string leaking =
        directory.write("leaking", shell + "until [ -e \"$1.leak\" ]; do sleep 0.1; done\n" +
                                       "exec 4</dev/null 5</dev/null; while :; do x=$x" + take);
    chmod(level.c_str(), 0700);
    chmod(leaking.c_str(), 0700);
    const soak_daemon daemons[] = {{level, directory.path + "/1", ""},
                                   {leaking, directory.path + "/2", ""}};
    soak_report report;
    soak_watch watches[] = {soak_watch(report, 50ms), soak_watch(report, 50ms)};
    for (std::size_t turn = 0; turn < 44; ++turn) {
        if (turn == 16) {
            const std::size_t before = daemons[1].look().descriptors;
            static_cast<void>(directory.write("2/soak.conf.leak", ""));
            ASSERT_TRUE(wait_until([&] { return daemons[1].look().descriptors == before + 2; }));
        }
        for (const std::size_t at : {0U, 1U}) {
            EXPECT_TRUE(wait_until([&] { return watches[at].step(daemons[at], turn * 50); }));
        }
    }
    EXPECT_EQ(violated_by([&] { watches[0].judge(); }), checks{});
    EXPECT_EQ(violated_by([&] { watches[1].judge(); }),
              (checks{"descriptors stay level", "memory grows by the header lists alone"}));
    EXPECT_EQ(violated_by([&] { soak_watch(report).judge(); }), checks{"the soak is long enough"});
}

namespace {

/// The soak's installation, with a client of its server in the daemon's place.
struct soaked : testing::Test {
    soaked() {
        options.zorvins = 2;
        options.http_port = 0;
        options.fusion = true;
        lab.emplace(record, options);
        record.on_message([this](const peers::message& what) { judge.see(what); });
    }
    void request(const std::string& path, const std::string& body) {
        curl_http::http_client http(lab->server().port());
        const std::string url = "http://127.0.0.1:/v2/zorvins/" + path;
        static_cast<void>(body.empty() ? http.get(url) : http.post_json(url, body));
    }
    void attach_anew() {
        request("attach", R"({"type":"zorvin","version":"v1"})");
        request("1/msg", R"({"cmd":"associate","success":true})");
    }
    [[nodiscard]] bool is_whole() {
        const peers::rest_server_faults faults = lab->server().faults();
        return lab->server().running() && !faults.silent && faults.delay.count() == 0 &&
               !faults.cut && !faults.status;
    }

    log_file file;
    soak_record judge{file.report, soak_bots(2), commands.at("attach").text};
    peers::journal record;
    peers::installation_options options;
    std::optional<peers::installation> lab;
};

} // namespace

TEST_F(soaked, an_outage_owes_one_line_and_a_return) {
    const checks lines = {"an outage gives one line in the log"};
    const checks session = {"what is no outage keeps the session"};
    enum kind { stopped, silent, slow, cutting, error_status };
    enum reaction { poll, attaching, dismissed, none };
    const struct {
        kind fault;
        int lines; // that the daemon logs
        reaction then;
        checks violated;
    } rows[] = {
        {stopped, 1, attaching, {}},
        {stopped, 0, attaching, lines},
        {stopped, 2, attaching, lines},
        {silent, 1, poll, {}},
        {silent, 2, poll, lines},
        {cutting, 0, poll, {}},
        {slow, 0, poll, {}},
        {slow, 1, poll, lines},
        {slow, 0, attaching, session},
        {error_status, 0, attaching, session},
        {error_status, 0, dismissed, {}},
        {cutting, 0, none, {"the daemon comes back"}},
    };
    const auto go_through = [this](server_faults& faults, const auto& row) {
        attach_anew();
        faults.begin(row.fault, 0ms);
        EXPECT_FALSE(is_whole());
        for (int line = 0; line < row.lines; ++line) {
            file.add("[1] request to http://a failed: x\n");
        }
        if (row.then == dismissed) {
            play(judge, "disconnect");
        }
        faults.step(soak_clock::now());
        EXPECT_TRUE(is_whole());
        faults.step(soak_clock::now() + (row.then == none ? 31s : 29s));
        EXPECT_FALSE(faults.calm()) << "nothing was heard of the daemon yet";
        if (row.then == attaching || row.then == dismissed) {
            attach_anew();
        } else {
            request("1/msg", "");
        }
        faults.step(soak_clock::now());
        EXPECT_TRUE(faults.calm());
        play(judge, "rubbish");
        EXPECT_TRUE(judge.owes_reply()) << "what is lost from now on counts";
        play(judge, std::string("<") + object_error);
    };
    for (const auto& row : rows) {
        server_faults faults(*lab, judge, file.log, file.report, 1);
        EXPECT_EQ(violated_by([&] { go_through(faults, row); }), row.violated)
            << row.fault << " " << row.lines;
    }
}
