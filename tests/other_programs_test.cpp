// The programs beside the daemon as people and scripts meet them: options, exit status, output.
#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include "daemon/configuration.h"
#include "peers/core_service.h"
#include "platform/json.h"
#include "support/child_process.h"
#include "support/vectors.h"

namespace {

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
    directory.write("good", keys);
    directory.write("doubtful", keys + "sever=b\n");
    const std::string bad = directory.write("bad", keys + "sever=b\napi=V3\n");
    const std::map<std::string, std::string> commands = {
        {"lab", CSI_LAB_COMMAND}, {"doctor", CSI_DOCTOR_COMMAND}, {"soak", CSI_SOAK_COMMAND}};
    const auto run_case = [&](const json::value& one) {
        texts words;
        for_each(one, "run", [&](const auto& word) { words.push_back(wire_text(word)); });
        EXPECT_EQ(run(commands.at(words.front()), {words.begin() + 1, words.end()}),
                  one["status"].GetInt());
        const std::string said = directory.read("output");
        EXPECT_NE(said.find(wire_text(one["says"])), std::string::npos) << said;
        const json::value* const lacks = json::find(one, "lacks");
        EXPECT_TRUE(lacks == nullptr || said.find(wire_text(*lacks)) == std::string::npos) << said;
    };
    for_each_case("programs/options", run_case, directory.path);
    EXPECT_EQ(run(CSI_DOCTOR_COMMAND, {"--json", "--offline", bad}), 2);
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
    std::size_t begin = 0;
    for_each_case("programs/lab_commands", [&](const json::value& one) {
        dprintf(input[1], "%s", one["type"].GetString());
        EXPECT_TRUE(wait_until([&, text = "\n" + wire_text(one["says"])] {
            const std::size_t found = lab.output().find(text, begin);
            begin = found == std::string::npos ? begin : found + text.size();
            return found != std::string::npos;
        }));
    });
    dprintf(input[1], "stop core"); // its end comes with that of the input, but not the lab's
    close(input[1]);
    EXPECT_TRUE(
        wait_until([&] { return lab.output().find("\ndone", begin) != std::string::npos; }));
    lab.signal(SIGTERM);
    EXPECT_EQ(lab.wait(), 0);
    peers::journal journal;
    const peers::core_service in_its_place(journal, "127.0.0.1");
    EXPECT_EQ(run(CSI_LAB_COMMAND, {"--http-port", "0"}), 1);
    EXPECT_EQ(directory.read("output").rfind(std::string("csi_lab: 127.0.0.1 port 14310: ") +
                                                 std::strerror(EADDRINUSE) + "\ncsi_lab: end",
                                             0),
              0U);
}

namespace {

/// A lab of its own for each case: most of their time is spent waiting for peers.
struct lab_runs : programs, testing::WithParamInterface<std::string> {
    void run_lab(const json::value& one, const char* member) {
        texts words;
        for_each(one, member, [&](const json::value& word) {
            words.push_back(word == "DAEMON" ? CSI_RECEIVER_BINARY : wire_text(word));
        });
        EXPECT_EQ(run(CSI_LAB_COMMAND, words), one["status"].GetInt()) << member;
    }
};

} // namespace

TEST_P(lab_runs, go_as_written) {
    const json::document cases = read_vector("programs/lab_runs", directory.path);
    const json::value& one = cases[GetParam().c_str()];
    std::string script;
    for_each(one, "script", [&](const json::value& line) { script += wire_text(line) + "\n"; });
    static_cast<void>(directory.write("script", script));
    run_lab(one, "run");
    const std::string said = directory.read("output");
    for_each(one, "says", [&](const json::value& text) {
        EXPECT_NE(said.find(wire_text(text)), std::string::npos) << wire_text(text) << said;
    });
    for_each(one, "not", [&](const json::value& text) {
        EXPECT_EQ(said.find(wire_text(text)), std::string::npos) << wire_text(text) << said;
    });
    if (json::find(one, "then") != nullptr) {
        run_lab(one, "then");
    }
}

INSTANTIATE_TEST_SUITE_P(vectors, lab_runs, testing::ValuesIn(vector_cases("programs/lab_runs")));
