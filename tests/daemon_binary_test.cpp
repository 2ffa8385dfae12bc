// The built daemon as an operator meets it: arguments, exit status, output, signals, background.
#include <atomic>
#include <future>
#include <optional>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "peers/core_service.h"
#include "peers/rest_server.h"
#include "support/daemon_process.h"

using namespace std::chrono_literals;

namespace {

constexpr const char* bot = "routing=0x65:127.0.0.1:wlan0:0A0000000101\n";

constexpr const char* two_bots =
    "log=no\nrouting=101:127.0.0.1:wlan0:0A0000000101,102:127.0.0.1:wlan0:0A0000000102\n";

constexpr const char* closing_lines =
    "] Stopping the Zorvin client\nClosing monitor client\nExiting csi_receiver\n";

constexpr const char* last_words = "\nClosing monitor client\nExiting csi_receiver\n";

constexpr const char* give_back = R"({"cmd":"del_interface","ifname":"wlan0"})";

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

struct daemon_binary : testing::Test {
    std::string configuration(const std::string& more) {
        return directory.write("conf", "zorvin_uuid=9001\nserver=127.0.0.1\nhttp_port=" +
                                           std::to_string(server.port()) + "\n" + bot + more);
    }
    [[nodiscard]] bool attached() {
        return wait_until([this] { return server.gets() > 0; });
    }
    [[nodiscard]] std::vector<std::string> requests() const {
        std::vector<std::string> result;
        for (const peers::message& one : journal.select("daemon", "core 127.0.0.1")) {
            result.push_back(one.text);
        }
        return result;
    }
    [[nodiscard]] std::string last_request() const { return requests().back(); }

    /// Waits until the daemon, which was sent SIGTERM after so many requests, has ended: nothing
    /// was begun after that but to give the interface back.
    void expect_end(daemon_process& daemon, std::size_t asked) {
        EXPECT_EQ(daemon.wait(5s), 0);
        EXPECT_TRUE(ends_with(daemon.output(), last_words)) << daemon.output();
        const std::vector<std::string> all = requests();
        EXPECT_EQ(all.size(), asked + 1) << testing::PrintToString(all);
        EXPECT_EQ(all.back(), give_back);
        EXPECT_TRUE(core.interfaces().empty());
    }

    temporary_directory directory;
    peers::journal journal;
    peers::rest_server server{journal};
    peers::core_service core{journal, "127.0.0.1", {{}, {100ms, 5000ms}}};
};

} // namespace

TEST(daemon_arguments, usage_and_configuration_errors) {
    temporary_directory directory;
    const std::string conf = directory.path + "/conf";
    const std::string unreadable = "config empty or file " + conf + " could not be opened\n";
    const struct {
        const char* text; // of the configuration; nullptr for no such file
        std::vector<std::string> arguments;
        std::string output;
        int status;
    } rows[] = {
        {nullptr, {}, "csi_receiver conf_file\n", 1},
        {nullptr, {conf}, unreadable, 1},
        {"# only comments\nempty=\n", {conf}, unreadable, 1},
        {nullptr, {"-D"}, "config empty or file -D could not be opened\n", 1},
        {"a=b\n", {conf}, "Set \"zorvin_uuid=<uuid>\" in " + conf + "\n", 1},
        {"zorvin_uuid=1\n",
         {conf},
         "Set \"routing=botID1:ifname1:hwaddr1,botID2:ifname2:hwaddr2\" in " + conf + "\n",
         1},
        {"zorvin_uuid=1\nrouting=x\n", {conf}, "Set \"server=<ip>\" in " + conf + "\n", 1},
        {"zorvin_uuid=1\n", {conf, "-D"}, "", 0}, // what is wrong is known in the background
    };
    for (const auto& row : rows) {
        std::filesystem::remove(conf);
        if (row.text != nullptr) {
            static_cast<void>(directory.write("conf", row.text));
        }
        daemon_process daemon(directory, row.arguments);
        EXPECT_EQ(daemon.wait(), row.status);
        EXPECT_EQ(daemon.output(), row.output);
    }
}

TEST_F(daemon_binary, runs_in_the_foreground_until_it_is_told_to_end) {
    daemon_process daemon(directory, {configuration("log=yes\nversion=x\nexecname=y\n")});
    ASSERT_TRUE(attached());
    daemon.signal(SIGINT);
    daemon.signal(SIGPIPE);
    daemon.signal(SIGALRM);
    const std::size_t gets = server.gets();
    ASSERT_TRUE(wait_until([&] { return server.gets() > gets + 2; }));
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_EQ(last_request(), give_back);
    const std::string output = daemon.output();
    EXPECT_NE(output.find("ZW device module version: v"), std::string::npos);
    EXPECT_NE(output.find("] received interrupt signal \n"), std::string::npos);
    EXPECT_NE(output.find("] received broken pipe signal \n"), std::string::npos);
    EXPECT_TRUE(ends_with(output, closing_lines)) << output;
    EXPECT_EQ(output.find("alarm"), std::string::npos);
}

TEST_F(daemon_binary, logs_to_its_file_and_closes_on_standard_output) {
    const std::string log = directory.path + "/log/";
    daemon_process daemon(directory, {configuration("log_path=" + log + "\n")});
    ASSERT_TRUE(attached());
    daemon.signal(SIGHUP);
    EXPECT_EQ(daemon.wait(), 0);
    const std::string output = daemon.output();
    EXPECT_TRUE(ends_with(output, closing_lines)) << output;
    EXPECT_EQ(output.find("Connected"), std::string::npos);
    const std::string text = directory.read("log/csi_receiver.log");
    EXPECT_EQ(text.rfind("ZW device module version: v", 0), 0U);
    EXPECT_TRUE(ends_with(text, "] received hangup signal \n")) << text;
}

TEST_F(daemon_binary, can_be_stopped_when_it_was_started_without_standard_input) {
    const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10);
    close(STDIN_FILENO);
    daemon_process daemon(directory, {configuration("log=no\n")});
    dup2(kept, STDIN_FILENO);
    close(kept);
    ASSERT_TRUE(attached());
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(daemon_binary, does_not_mind_that_nobody_reads_its_log) {
    const std::string pipe = directory.path + "/output"; // in place of the file
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    daemon_process daemon(directory, {configuration("log=no\n")});
    ASSERT_TRUE(attached());
    close(reader);
    server.queue(R"({"cmd":"associate"})"); // the first line that is not read
    const std::size_t gets = server.gets();
    ASSERT_TRUE(wait_until([&] { return server.gets() > gets + 10; }));
    EXPECT_LT(daemon.cpu_ms(), 500) << "each lost line makes another one";
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(daemon_binary, runs_in_the_background_and_rotates_its_log) {
    const std::string log = directory.path + "/log";
    daemon_process daemon(directory, {configuration("log_path=" + log + "\n"), "-D"});
    ASSERT_TRUE(daemon.follow_into_background());
    ASSERT_TRUE(attached());
    // Each is logged as it comes and as it is answered. More than 16 KiB would come in two chunks.
    const std::string large = "{\"cmd\":\"" + std::string(15000, 'x') + "\"}";
    for (int command = 0; command < 75; ++command) {
        server.queue(large);
    }
    server.queue(R"({"cmd":"associate"})");
    const auto rotated = [&] {
        const std::string text = directory.read("log/csi_receiver.log");
        return text.find("] log rotated\n") != std::string::npos &&
               text.find("associate") != std::string::npos;
    };
    ASSERT_TRUE(wait_until(rotated));
    EXPECT_GT(directory.read("log/csi_receiver.log.1").size(), 2097152U);
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_EQ(daemon.output(), ""); // nobody is there to read
    EXPECT_EQ(last_request(), give_back);
    EXPECT_TRUE(
        ends_with(directory.read("log/csi_receiver.log"), "] received terminate signal \n"));
}

TEST_F(daemon_binary, a_wrong_type_from_the_core_service_ends_it) {
    core.answer_with([](const std::string&) {
        return std::vector<std::string>{R"({"ping":1,"success":"yes"})"};
    });
    daemon_process daemon(directory, {configuration("log=no\n")});
    EXPECT_EQ(daemon.wait(), -SIGABRT);
}

TEST_F(daemon_binary, begins_nothing_more_when_it_is_told_to_end_in_mid_request) {
    const struct {
        const char* request; // told to end while this is under way,
        int nth;             // and not when it is for the first times
        bool by_timer;       // the main thread is free to notice
    } rows[] = {
        {R"({"ping":)", 1, false},            // the core service answers, but all is over
        {R"("cmd":"info")", 1, false},        // the start would go on with an attach
        {R"("cmd":"active_bots")", 1, false}, // a scan begins,
        {R"("rate":10)", 1, false},           // sounds the first of two Bots,
        {R"("cmd":"active_bots")", 2, true},  // looks for them,
        {R"("rate":0)", 1, true},             // and stops the one that it found
    };
    core.set_present("102", false);
    for (const auto& row : rows) {
        std::promise<const daemon_process*> started;
        int left = row.nth;
        std::atomic<bool> told{false};
        std::atomic<std::size_t> asked{0};
        std::atomic<std::size_t> posts{0};
        journal.clear();
        core.answer_with([&](const std::string& request) {
            if (request.find(row.request) != std::string::npos && --left == 0) {
                asked = journal.count("daemon", core.peer().name());
                posts = server.posts();
                const daemon_process* const daemon = started.get_future().get();
                daemon->signal(SIGTERM);
                told = true;
                EXPECT_TRUE(!row.by_timer || wait_until([daemon] {
                    return daemon->output().find("Stopping the") != std::string::npos;
                }));
            }
            return std::optional<std::vector<std::string>>();
        });
        daemon_process daemon(directory, {configuration(two_bots)});
        started.set_value(&daemon);
        ASSERT_TRUE(wait_until([&told] { return told.load(); })) << row.request;
        expect_end(daemon, asked);
        EXPECT_EQ(server.posts(), posts) << row.request;
        core.answer_with({});
    }
}

TEST_F(daemon_binary, does_not_wait_for_the_next_look_of_a_scan) {
    core.set_present("102", false);
    daemon_process daemon(directory, {configuration(two_bots)});
    // The start asks three things, the scan's beginning too; a look finds a Bot, one finds none.
    ASSERT_TRUE(wait_until([this] { return journal.count(core.peer().name(), "daemon") == 9; }));
    daemon.signal(SIGTERM);
    expect_end(daemon, 9);
}

TEST_F(daemon_binary, finishes_the_report_that_is_being_sent) {
    std::atomic<bool> reported{false};
    core.answer_with([&](const std::string& request) {
        if (reported && request.find(R"("rate":0)") != std::string::npos) {
            server.set_silent(true); // the report of the scan comes next
        }
        return std::optional<std::vector<std::string>>();
    });
    daemon_process daemon(directory, {configuration("log=no\n")});
    const auto is_sent = [this](const std::string& text) {
        return wait_until([&] { return journal.messages().back().text.rfind(text, 0) == 0; }, 20s);
    };
    ASSERT_TRUE(attached());
    ASSERT_TRUE(is_sent(R"({"bot_info":)")); // the first scan, which is not reported, is over
    reported = true;
    server.queue(R"({"cmd":"scan"})");
    ASSERT_TRUE(is_sent(R"({"cmd":"scan","zorvin")"));
    const std::size_t asked = requests().size();
    const std::size_t posts = server.posts();
    daemon.signal(SIGTERM);
    server.set_silent(false);
    expect_end(daemon, asked);
    EXPECT_EQ(server.posts(), posts);
    EXPECT_NE(daemon.output().find(R"(<-- {"cmd":"scan")"), std::string::npos);
}
