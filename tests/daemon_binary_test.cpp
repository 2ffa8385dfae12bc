// The built daemon as an operator sees it: arguments, exit status, output, signals, background.
#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <regex>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>

#include "peers/core_service.h"
#include "peers/rest_server.h"
#include "support/daemon_process.h"
#include "support/vectors.h"

using namespace std::chrono_literals;
using texts = std::vector<std::string>;

namespace {

constexpr const char* name = "path/to/csi_receiver";

constexpr const char* two_zorvins =
    "log=no\ncsi_file=/dev/null\nrouting=101:127.0.0.1:wlan0:0A0000000101,"
    "102:127.0.0.1:wlan1:0A0000000102,103:127.0.0.2:wlan2:0A0000000103\n";

/// In the pattern, KERNEL stands for the line that must be there on a preemptive kernel, and END
/// for the last lines.
void expect_match(const std::string& text, std::string pattern) {
    utsname kernel{};
    uname(&kernel);
    const bool preemptive = std::string(kernel.version).find("PREEMPT") != std::string::npos;
    const std::pair<const char*, const char*> names[] = {
        {"KERNEL", preemptive ? "Running with a preemptive kernel\n" : ""},
        {"END", R"(\[\S+\] Stopping the Zorvin client\nClosing monitor client\n)"
                "Exiting csi_receiver\n"}};
    for (const auto& [placeholder, lines] : names) {
        pattern = std::regex_replace(pattern, std::regex(placeholder), lines);
    }
    EXPECT_TRUE(std::regex_match(text, std::regex(pattern))) << text << pattern;
}

void refuse_timers() {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_SIGPENDING, &none);
}

void refuse_new_processes() {
    refuse_call<SYS_clone>();
#ifdef SYS_fork // some C libraries use it
    refuse_call<SYS_fork>();
#endif
}

/// Runs the daemon in a new folder for each case in the file. The second word names its
/// configuration, which exists if there are keys. What it prints and logs are patterns.
void run_cases(const std::string& file) {
    const std::map<std::string_view, void (*)()> refusals = {
        {"", nullptr},
        {"timers", refuse_timers},
        {"signals", refuse_call<SYS_signalfd4>},
        {"processes", refuse_new_processes},
        {"sessions", refuse_call<SYS_setsid>}};
    for_each_case(file, [&](const json::value& one) {
        const temporary_directory directory;
        std::filesystem::current_path(directory.path);
        texts words;
        for_each(one, "run", [&](const auto& word) { words.push_back(wire_text(word)); });
        if (const json::value* const keys = json::find(one, "keys")) {
            static_cast<void>(directory.write(
                words[1], std::regex_replace(wire_text(*keys), std::regex("DIR"), directory.path)));
        }
        const std::string_view refused = json::find_string(one, "refuse").value_or("");
        daemon_process daemon(directory, words, refusals.at(refused));
        EXPECT_EQ(daemon.wait(), one["status"].GetInt());
        const int background = daemon_process::wait_for_background();
        EXPECT_TRUE(refused != "sessions" || background == 1);
        expect_match(daemon.output(), wire_text(one["says"]));
        expect_match(directory.read("csi_receiver.log"),
                     std::string(json::find_string(one, "logs").value_or("absent")));
    });
    std::filesystem::current_path("/");
}

/// What another program might leave open for the daemon.
void leave_files_open() {
    const int zero = open("/dev/zero", O_RDONLY);
    dup2(zero, STDERR_FILENO + 1);
    dup2(zero, 100);
}
void leave_files_open_and_refuse_to_close_ranges() {
    leave_files_open();
    refuse_call<SYS_close_range>();
}

struct daemon_binary : testing::Test {
    /// Starts a daemon with one Bot, unless the keys have another routing.
    void start(const std::string& keys, const char* option = "", void (*prepare)() = nullptr) {
        const std::lock_guard<std::mutex> lock(starting);
        const std::string configuration =
            directory.write("conf", "zorvin_uuid=9001\nserver=127.0.0.1\nhttp_port=" +
                                        std::to_string(server.port()) +
                                        "\nrouting=0x65:127.0.0.1:wlan0:0A0000000101\n" + keys);
        daemon = std::make_unique<daemon_process>(directory, texts{name, configuration, option},
                                                  prepare);
    }
    /// Waits for so many more polls.
    [[nodiscard]] bool polls(std::size_t times) {
        return wait_until([this, gets = server.gets() + times] { return server.gets() >= gets; });
    }
    /// Waits for a message to the server.
    [[nodiscard]] bool sends(const std::string& begin) {
        const auto has_begin = [&begin](const auto& one) { return one.body.rfind(begin, 0) == 0; };
        return server.wait_for(
            [&](const auto& all) { return std::any_of(all.begin(), all.end(), has_begin); }, 20s);
    }
    /// Acts while the nth request that contains the text is under way.
    void during(const std::string& text, int nth, const std::function<void()>& act) {
        const auto left = std::make_shared<std::atomic<int>>(nth);
        for (peers::core_service* const core : {&first, &second}) {
            core->answer_with([=](const std::string& request) {
                if (request.find(text) != std::string::npos && --*left == 0) {
                    const std::lock_guard<std::mutex> lock(starting);
                    act();
                }
                return std::optional<texts>();
            });
        }
    }
    /// The requests to both core services.
    [[nodiscard]] texts requests() const {
        texts result;
        for (const peers::message& one : journal.select("daemon", "")) {
            if (one.to != "server") {
                result.push_back(one.text);
            }
        }
        return result;
    }
    /// Signal 0 is none.
    void end(int signal = SIGTERM) {
        daemon->signal(signal);
        EXPECT_EQ(daemon->wait(5s), 0);
        EXPECT_TRUE(first.interfaces().empty() && second.interfaces().empty());
    }
    /// Waits for the end of the daemon, which was sent SIGTERM after so many requests: the only
    /// later ones delete its interfaces.
    void expect_end(std::size_t asked, int interfaces) {
        end(0);
        texts expected = requests();
        expected.resize(asked);
        for (int interface = 0; interface < interfaces; ++interface) {
            expected.push_back(R"({"cmd":"del_interface","ifname":"wlan)" +
                               std::to_string(interface) + "\"}");
        }
        EXPECT_EQ(requests(), expected);
        EXPECT_NE(daemon->output().find("received terminate signal"), std::string::npos);
    }

    temporary_directory directory;
    peers::journal journal;
    peers::rest_server server{journal};
    peers::core_service first{journal, "127.0.0.1", {{}, {100ms, 5000ms}}};
    peers::core_service second{journal, "127.0.0.2", {{}, {100ms, 5000ms}}};
    std::mutex starting; // held while the daemon starts
    std::unique_ptr<daemon_process> daemon;
};

/// Needs what an emulator of other machines does not have: the adoption of orphans, and filters on
/// system calls.
using native_daemon = daemon_binary;

} // namespace

TEST_F(daemon_binary, lines_go_where_the_log_key_says_and_a_client_that_cannot_start_is_no_error) {
    run_cases("programs/daemon");
}

TEST_F(native_daemon, arguments_configuration_errors_and_exit_statuses) {
    run_cases("programs/native_daemon");
}

TEST_F(native_daemon, keeps_nothing_of_the_process_that_put_it_into_the_background) {
    const struct {
        std::string key;
        void (*prepare)();
        std::string output;
    } rows[] = {
        {"log_path=" + directory.path, leave_files_open, "/dev/null"},
        {"log=no", leave_files_open, directory.path + "/output"},
        {"log=no", leave_files_open_and_refuse_to_close_ranges, directory.path + "/output"},
    };
    for (const auto& row : rows) {
        start(row.key, "-D", row.prepare);
        ASSERT_TRUE(daemon->follow_into_background() && polls(1));
        EXPECT_EQ(std::filesystem::read_symlink(daemon->proc("cwd")), "/");
        const std::regex lines("[^]*Umask:\t0000\n[^]*SigIgn:\t\\w{11}[13579bdf]\\w{4}\n[^]*");
        EXPECT_TRUE(std::regex_match(read_file(daemon->proc("status")), lines))
            << "file mask, SIGCHLD ignored";
        EXPECT_EQ(std::filesystem::read_symlink(daemon->proc("fd/1")), row.output);
        EXPECT_TRUE(std::filesystem::is_symlink(daemon->proc("fd/0")));
        for (const auto& file : std::filesystem::directory_iterator(daemon->proc("fd"))) {
            EXPECT_NE(read_symlink(file), "/dev/zero") << file;
        }
        end();
    }
}

TEST_F(daemon_binary, runs_in_the_foreground_until_it_is_terminated) {
    start("log=yes\nversion=x\n");
    ASSERT_TRUE(polls(1));
    for (const int ignored : {SIGINT, SIGPIPE, SIGALRM}) {
        daemon->signal(ignored);
    }
    ASSERT_TRUE(polls(3));
    end();
    const std::regex others(R"(\[\S+\] (?!received|Stopping).*\n)");
    expect_match(std::regex_replace(daemon->output(), others, ""),
                 R"(KERNELZW device module version: \S+-\d+-g[0-9a-f]{12} \(built on )"
                 R"([A-Z][a-z]{2} [ \d]\d \d{4} \d\d:\d\d:\d\d\)\n)"
                 R"(\[\S+\] received interrupt signal \n\[\S+\] received broken pipe signal \n)"
                 R"(\[\S+\] received terminate signal \nEND)");
}

TEST_F(daemon_binary, logs_to_its_file_and_opens_all_close_on_exec) {
    std::promise<std::map<std::string, int>> open;
    during("active_bots", 1, [&] { open.set_value(daemon->closed_on_exec()); });
    static_cast<void>(directory.write("csi_receiver.log", "old"));
    start("log_path=" + directory.path + "/\nexecname=y\n");
    ASSERT_TRUE(polls(1));
    const std::map<std::string, int> expected = {
        {"socket", 2}, {"anon_inode:[signalfd]", 1}, {directory.path + "/csi_receiver.log", 1}};
    EXPECT_EQ(open.get_future().get(), expected);
    end(SIGHUP);
    expect_match(daemon->output(), "KERNELEND");
    expect_match(directory.read("csi_receiver.log"),
                 R"(ZW device module version: [^]*\] received hangup signal \n)");
    EXPECT_EQ(directory.read("csi_receiver.log.1"), "old");
}

TEST_F(daemon_binary, opens_the_standard_descriptors_that_are_closed) {
    start("log=no\n", "", [] {
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            close(fd);
        }
    });
    ASSERT_TRUE(polls(1));
    for (const char* const fd : {"fd/0", "fd/1", "fd/2"}) {
        EXPECT_EQ(std::filesystem::read_symlink(daemon->proc(fd)), "/dev/null");
    }
    end();
}

TEST_F(daemon_binary, keeps_running_when_nobody_reads_its_log) {
    const std::string pipe = directory.path + "/output"; // instead of a file
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    start("log=no\n");
    ASSERT_TRUE(polls(1));
    close(reader);
    server.queue(R"({"cmd":"associate"})"); // its line is the first that nobody reads
    ASSERT_TRUE(polls(11));
    EXPECT_LT(daemon->cpu_ms(), 500) << "each lost line causes another one";
    end();
}

TEST_F(native_daemon, runs_in_the_background_and_rotates_its_log) {
    start("log_path=" + directory.path + "/log\n", "-D");
    ASSERT_TRUE(daemon->follow_into_background() && polls(1));
    // Each is logged twice: when it arrives, and with its answer. Above 16 KiB it would arrive in
    // two chunks.
    const std::string large = "{\"cmd\":\"" + std::string(15000, 'x') + "\"}";
    for (int command = 0; command < 75; ++command) {
        server.queue(large);
    }
    server.queue(R"({"cmd":"associate"})");
    ASSERT_TRUE(wait_until([this] {
        const std::string text = directory.read("log/csi_receiver.log");
        return text.find("] log rotated\n") != std::string::npos &&
               text.find("associate") != std::string::npos;
    }));
    EXPECT_GT(directory.read("log/csi_receiver.log.1").size(), 2097152U);
    end();
    EXPECT_EQ(daemon->output(), "");
    EXPECT_EQ(lines_of(directory.read("log/csi_receiver.log")).back(),
              "received terminate signal ");
}

TEST_F(daemon_binary, a_wrong_type_from_the_core_service_ends_it) {
    first.answer_with([](const std::string&) { return texts{R"({"ping":1,"success":"yes"})"}; });
    start("log=no\n");
    EXPECT_EQ(daemon->wait(), -SIGABRT);
}

// In each case the daemon is terminated while a request is under way for the nth time. Where that
// is on a timer's thread, the main thread is free to notice.
TEST_F(daemon_binary, starts_nothing_new_when_it_is_terminated_in_mid_request) {
    for_each_case("programs/daemon_terminations", [this](const json::value& one) {
        const bool by_command = json::find(one, "queue") != nullptr;
        std::atomic<bool> terminated{false};
        std::atomic<std::size_t> asked{0};
        std::atomic<std::size_t> posts{0};
        journal.clear();
        during(wire_text(one["request"]), one["nth"].GetInt(), [&] {
            asked = requests().size();
            posts = server.posts();
            daemon->signal(SIGTERM);
            EXPECT_TRUE(!one["by_timer"].GetBool() || wait_until([this] {
                return daemon->output().find("Stopping the") != std::string::npos;
            }));
            terminated = true;
        });
        first.set_present("102", by_command); // a command comes after the scan
        start(two_zorvins);
        EXPECT_TRUE(!by_command || sends(R"({"bot_info":)"));
        for_each(one, "queue", [this](const auto& text) { server.queue(wire_text(text)); });
        ASSERT_TRUE(wait_until([&terminated] { return terminated.load(); }));
        expect_end(asked, 3);
        EXPECT_EQ(server.posts(), posts + (by_command ? 1 : 0));
    });
    EXPECT_EQ(server.requests().back().body, R"({"success":false,"reason":"Engine object error"})");
}

TEST_F(daemon_binary, does_not_wait_for_the_next_check_of_a_scan) {
    first.set_present("102", false);
    second.set_present("103", false);
    start(two_zorvins);
    // The first check finds a Bot and stops it, the second finds none.
    ASSERT_TRUE(wait_until([this] { return journal.count(second.peer().name(), "daemon") == 8; }));
    const std::size_t asked = requests().size();
    daemon->signal(SIGTERM);
    expect_end(asked, 3);
}

TEST_F(daemon_binary, finishes_the_report_that_it_is_sending) {
    during(R"("rate":0)", 2, [this] { server.set_silent(true); }); // the scan report comes next
    start("log=no\n");
    ASSERT_TRUE(sends(R"({"bot_info":)")); // the first scan, which sends no report, is over
    server.queue(R"({"cmd":"scan"})");
    ASSERT_TRUE(sends(R"({"cmd":"scan","zorvin")"));
    const std::size_t asked = requests().size();
    const std::size_t posts = server.posts();
    daemon->signal(SIGTERM);
    server.set_silent(false);
    expect_end(asked, 1);
    EXPECT_EQ(server.posts(), posts);
    EXPECT_NE(daemon->output().find(R"(<-- {"cmd":"scan")"), std::string::npos);
}
