// The programs beside the daemon as people and scripts meet them: options, exit status, output.
#include <gtest/gtest.h>

#include "daemon/configuration.h"
#include "peers/core_service.h"
#include "platform/json.h"
#include "support/child_process.h"

namespace {

using texts = std::vector<std::string>;

texts shell_words(const std::string& command, const texts& arguments) {
    texts result = {"sh", "-c", "exec " + command + R"( "$@")", "sh"};
    result.insert(result.end(), arguments.begin(), arguments.end());
    return result;
}

struct programs : testing::Test {
    /// The exit status of one that reads nothing. What it says is in the file "output".
    int run(const std::string& command, const texts& arguments) {
        const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
        child_process process(directory, "/bin/sh", shell_words(command, arguments),
                              {nothing, true});
        close(nothing);
        return process.wait();
    }

    temporary_directory directory;
};

} // namespace

TEST_F(programs, options_and_exit_status) {
    const std::string keys =
        "zorvin_uuid=1\nserver=a\nrouting=1:127.0.0.1:w:020000000001\nlog=no\n";
    const std::string good = directory.write("good", keys);
    const std::string doubtful = directory.write("doubtful", keys + "sever=b\n");
    const std::string bad = directory.write("bad", keys + "sever=b\napi=V3\n");
    const std::string lab = CSI_LAB_COMMAND;
    const std::string doctor = CSI_DOCTOR_COMMAND;
    const struct {
        std::string program;
        texts arguments;
        int status;
        std::string words;
    } rows[] = {
        {lab, {"word"}, 2, "csi_lab: "},
        {lab, {"--zorvins", "0"}, 2, "csi_lab: --zorvins: "},
        {lab, {"--zorvins", "251"}, 2, "csi_lab: --zorvins: "},
        {lab, {"--bots", "x"}, 2, "--bots"},
        {lab, {"--api", "v4"}, 2, "csi_lab: --api: "},
        {lab, {"--http-port", "65536"}, 2, "csi_lab: --http-port: "},
        {lab, {"--loss", "nan"}, 2, "csi_lab: --loss: "},
        {lab, {"--silent", "fusion"}, 2, "no such peer: fusion"}, // without --fusion there is none
        {lab, {"--silent", "core:127.0.0.2"}, 2, "no such peer: core:127.0.0.2"},
        {lab, {"--print-config", "--http-port", "0"}, 2, "csi_lab: --print-config: "},
        {doctor, {good, "--offline"}, 0, "ok  "},
        {doctor, {"--offline", doubtful}, 1, "warn  line 5"},
        {doctor, {bad, "--offline", "--color", "never"}, 2, "FAIL  "},
        {doctor, {bad, "--offline", "--color", "always"}, 2, "\x1b[1;31mFAIL\x1b[0m  "},
        {doctor, {directory.path + "/none", "--offline"}, 2, "cannot read"},
        {doctor, {directory.path, "--offline"}, 2, "is a directory"},
        {doctor, {}, 2, "usage: csi_doctor CONF"},
        {doctor, {good, bad}, 2, "usage: "},
        {doctor, {good, "--ofline"}, 2, "usage: "},
        {doctor, {good, "--color"}, 2, "usage: "},
        {doctor, {"--help"}, 0, "Exit status: 0 all is well"},
        {CSI_SOAK_COMMAND,
         {"--daemon", "/bin/false", "--folder", directory.path + "/soak"},
         1,
         "FAIL the daemon stays alive: it ended"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(run(row.program, row.arguments), row.status) << row.words;
        const std::string said = directory.read("output");
        EXPECT_NE(said.find(row.words), std::string::npos) << said;
    }
    EXPECT_EQ(run(doctor, {"--json", "--offline", bad}), 2);
    const json::document found = json::parse(directory.read("output"));
    ASSERT_TRUE(found.IsArray());
    const std::string last = json::write(*(found.End() - 1));
    EXPECT_EQ(last.rfind(R"({"level":)", 0), 0U) << last;
}

TEST_F(programs, the_lab_prints_a_configuration_that_the_daemon_reads) {
    EXPECT_EQ(run(CSI_LAB_COMMAND, {"--zorvins", "2", "--bots", "3", "--fusion", "--api", "v3",
                                    "--http-port", "8123", "--print-config"}),
              0);
    const csi_receiver::configuration expected = {
        {"zorvin_uuid", "9001"},
        {"server", "127.0.0.1"},
        {"http_port", "8123"},
        {"api", "v3"},
        {"fusion", "yes"},
        {"log", "no"},
        {"routing", "101:127.0.0.1:wlan0:020000000065,102:127.0.0.2:wlan1:020000000066,"
                    "103:127.0.0.1:wlan0:020000000067"}};
    EXPECT_EQ(csi_receiver::read_configuration(directory.path + "/output", '='), expected);
}

TEST_F(programs, the_lab_does_what_is_typed_until_it_is_told_to_end) {
    int input[2];
    ASSERT_EQ(pipe2(input, O_CLOEXEC), 0);
    child_process lab(directory, "/bin/sh", shell_words(CSI_LAB_COMMAND, {"--http-port", "0"}),
                      {input[0], true});
    close(input[0]);
    const std::pair<const char*, const char*> rows[] = {
        {"{\"cmd\":1}\r\n\n", "queued, 1 waiting"},
        {"raw {2\n", "queued, 2 waiting"},
        {"absent 101\n", "Bot 101 is absent"},
        {"present\n", "usage: present BOT"},
        {"silent core:127.0.0.1\n", "done"},
        {"silent core:127.0.0.2\n", "no such peer: core:127.0.0.2"},
        {"silent core maybe\n", "usage: silent PEER [on|off]"},
        {"delay 20\n", "all peers now wait 20 ms before they answer"},
        {"delay 5x\n", "usage: delay MS"},
        {"loss 0.25\n", "the share of lost UDP requests is now 0.25"},
        {"loss nan\n", "usage: loss SHARE"},
        {"stop server\n", "done"},
        {"start fusion\n", "no such peer: fusion"},
        {"Stop core\n", "\"Stop\" is neither JSON nor a command; try help"},
        {"state\n", "server [stopped]: nothing attached; attaches: 0, polls: 0, posts: 0; queued "
                    "commands: 2\ncore 127.0.0.1 [silent]: "},
        {"start server", "done"}, // its end comes with that of the input, but not the lab's
    };
    std::size_t begin = 0;
    for (const auto& [typed, answer] : rows) {
        dprintf(input[1], "%s", typed);
        if (typed == std::string("start server")) {
            close(input[1]);
        }
        const auto is_said = [&, text = std::string("\n") + answer] {
            const std::size_t found = lab.output().find(text, begin);
            begin = found == std::string::npos ? begin : found + text.size();
            return found != std::string::npos;
        };
        EXPECT_TRUE(wait_until(is_said)) << typed;
    }
    lab.signal(SIGTERM);
    EXPECT_EQ(lab.wait(), 0);
    peers::journal journal;
    const peers::core_service in_its_place(journal, "127.0.0.1");
    EXPECT_EQ(run(CSI_LAB_COMMAND, {"--http-port", "0"}), 1);
    EXPECT_EQ(directory.read("output"), "csi_lab: 127.0.0.1 port 14310: Address already in use\n");
}
