// The built daemon as an operator meets it: arguments, exit status, output, signals, background.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "lab/core_service.h"
#include "lab/rest_server.h"
#include "support/daemon_process.h"

using namespace std::chrono_literals;

namespace {

constexpr const char* bot = "routing=0x65:127.0.0.1:wlan0:0A0000000101\n";

constexpr const char* closing_lines =
    "] Stopping the Zorvin client\nClosing monitor client\nExiting csi_receiver\n";

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
    [[nodiscard]] std::string last_request() {
        return journal.select("daemon", "core 127.0.0.1").back().text;
    }

    temporary_directory directory;
    csi_lab::journal journal;
    csi_lab::rest_server server{journal};
    csi_lab::core_service core{journal, "127.0.0.1"};
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
    EXPECT_EQ(last_request(), R"({"cmd":"del_interface","ifname":"wlan0"})");
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
    EXPECT_EQ(last_request(), R"({"cmd":"del_interface","ifname":"wlan0"})");
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
