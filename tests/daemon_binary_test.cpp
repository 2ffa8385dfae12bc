// The built daemon as an operator sees it: arguments, exit status, output, signals, background.
#include <atomic>
#include <future>
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

using namespace std::chrono_literals;
using texts = std::vector<std::string>;

namespace {

constexpr const char* name = "path/to/csi_receiver";

constexpr const char* bot = "routing=0x65:127.0.0.1:wlan0:0A0000000101\n";

constexpr const char* two_bots =
    "log=no\nrouting=101:127.0.0.1:wlan0:0A0000000101,102:127.0.0.1:wlan0:0A0000000102\n";

constexpr const char* closing_lines =
    "] Stopping the Zorvin client\nClosing monitor client\nExiting csi_receiver\n";

constexpr const char* last_lines = "\nClosing monitor client\nExiting csi_receiver\n";

constexpr const char* delete_interface = R"({"cmd":"del_interface","ifname":"wlan0"})";

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// The lines after the one about the kernel, which must be there if the kernel is preemptive.
texts lines_after_kernel(const daemon_process& daemon) {
    texts lines = lines_of(daemon.output());
    utsname kernel{};
    uname(&kernel);
    if (std::string(kernel.version).find("PREEMPT") != std::string::npos) {
        lines.resize(std::max<std::size_t>(lines.size(), 1));
        EXPECT_EQ(lines.front(), "Running with a preemptive kernel");
        lines.erase(lines.begin());
    }
    return lines;
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
    std::string configuration(const std::string& more) {
        return directory.write("conf", "zorvin_uuid=9001\nserver=127.0.0.1\nhttp_port=" +
                                           std::to_string(server.port()) + "\n" + bot + more);
    }
    [[nodiscard]] bool attached() {
        return wait_until([this] { return server.gets() > 0; });
    }
    [[nodiscard]] texts requests() const {
        texts result;
        for (const peers::message& one : journal.select("daemon", "core 127.0.0.1")) {
            result.push_back(one.text);
        }
        return result;
    }
    [[nodiscard]] std::string last_request() const { return requests().back(); }

    /// Waits for the end of the daemon, which was sent SIGTERM after so many requests: it sent no
    /// other request afterwards than to delete the interface.
    void expect_end(daemon_process& daemon, std::size_t asked) {
        EXPECT_EQ(daemon.wait(5s), 0);
        EXPECT_TRUE(ends_with(daemon.output(), last_lines)) << daemon.output();
        const texts all = requests();
        EXPECT_EQ(all.size(), asked + 1) << testing::PrintToString(all);
        EXPECT_EQ(all.back(), delete_interface);
        EXPECT_TRUE(core.interfaces().empty());
    }

    temporary_directory directory;
    peers::journal journal;
    peers::rest_server server{journal};
    peers::core_service core{journal, "127.0.0.1", {{}, {100ms, 5000ms}}};
};

/// Needs what an emulator of other machines does not have: the adoption of orphans, and filters on
/// system calls.
using native_daemon = daemon_binary;

} // namespace

TEST(daemon_arguments, no_log_key_or_true_sends_lines_to_the_file) {
    const struct {
        const char* key;
        bool to_file;
    } rows[] = {{"", true},
                {"log=true\n", true},
                {"log=yes\n", false},
                {"log=True\n", false},
                {"log=no\n", false}};
    for (const auto& row : rows) {
        temporary_directory directory;
        const std::string keys = "zorvin_uuid=1\nrouting=x\nserver=h\nlog_path=" + directory.path;
        daemon_process daemon(directory, {name, directory.write("conf", keys + "\n" + row.key)});
        EXPECT_EQ(daemon.wait(), 0) << "a client that cannot start is not an error";
        const auto has_error = [](const std::string& text) {
            return text.find("error parsing \"routing=x\" conf") != std::string::npos;
        };
        EXPECT_EQ(has_error(directory.read("csi_receiver.log")), row.to_file) << row.key;
        EXPECT_EQ(has_error(daemon.output()), !row.to_file) << row.key;
        EXPECT_TRUE(ends_with(daemon.output(), closing_lines)) << daemon.output();
    }
}

TEST(daemon_arguments, a_refused_timer_is_reported_and_the_exit_status_is_0) {
    temporary_directory directory;
    const std::string conf =
        directory.write("conf", "zorvin_uuid=1\nrouting=x\nserver=h\nlog=no\n");
    daemon_process daemon(directory, {name, conf}, [] {
        const rlimit none{0, 0};
        setrlimit(RLIMIT_SIGPENDING, &none);
    });
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_EQ(lines_after_kernel(daemon),
              (texts{"EXCEPTION: Resource temporarily unavailable", "Error starting monitor",
                     "Closing monitor client", "Exiting csi_receiver"}));
}

TEST_F(native_daemon, arguments_configuration_errors_and_exit_statuses) {
    constexpr auto no_signals = &refuse_call<SYS_signalfd4>;
    constexpr auto no_fork = [] {
        refuse_call<SYS_clone>();
#ifdef SYS_fork // some C libraries use it
        refuse_call<SYS_fork>();
#endif
    };
    constexpr auto no_session = &refuse_call<SYS_setsid>;
    const std::string set_routing =
        "Set \"routing=botID1:ifname1:hwaddr1,botID2:ifname2:hwaddr2\" in ";
    const std::string set_server = "Set \"server=<ip>\" in conf\n";
    const std::string usage = "csi_receiver conf_file\n";
    const std::string unreadable = "config empty or file conf could not be opened\n";
    const std::string uuid = "zorvin_uuid=1\n";
    const std::string all = uuid + "routing=x\nserver=h\nlog=no\n";
    const struct {
        void (*refuse)();
        std::string keys; // in the file that the second word names; without any there is no file
        texts words;
        int status; // of the process that was started
        std::string output;
    } rows[] = {
        {nullptr, "", {name}, 1, usage},
        {nullptr, "", {"path\\to/csi_receiver"}, 1, usage},
        {nullptr, "", {"path/to\\csi_receiver"}, 1, usage},
        {nullptr, "", {name, "conf"}, 1, unreadable},
        {nullptr, "# comment\nempty=\n", {name, "conf", "-D"}, 1, unreadable},
        {nullptr, "a=b", {name, "conf", "-D"}, 1, "Set \"zorvin_uuid=<uuid>\" in conf\n"},
        {nullptr, uuid, {name, "conf", "-Dx", "-d"}, 1, set_routing + "conf\n"},
        {nullptr, uuid + "routing=x", {name, "conf"}, 1, set_server},
        {no_signals, all, {name, "conf"}, 1, "Error initializing signal handling\n"},
        // What comes after -D fails in the background, and is visible if the log is not the file.
        {no_fork, all, {name, "conf", "-D"}, 1, ""},
        {no_session, all, {name, "conf", "-D"}, 0, ""},
        {nullptr, uuid, {name, "conf", "-D"}, 0, ""},
        {nullptr, uuid + "log=yes", {name, "conf", "-D"}, 0, ""},
        {nullptr, uuid + "log=true", {name, "conf", "-D"}, 0, set_routing + "conf\n"},
        {nullptr, uuid + "log=no", {name, "conf", "word", "-D"}, 0, set_routing + "conf\n"},
        {nullptr, uuid + "log=no", {"-D", "conf"}, 0, set_routing + "conf\n"},
        {nullptr, uuid + "log=no", {name, "-D"}, 0, set_routing + "-D\n"},
        {nullptr, uuid + "routing=x\nlog=no", {name, "conf", "-D"}, 0, set_server},
    };
    std::filesystem::current_path(directory.path);
    for (const auto& row : rows) {
        if (!row.keys.empty()) {
            static_cast<void>(directory.write(row.words[1], row.keys));
        }
        daemon_process daemon(directory, row.words, row.refuse);
        EXPECT_EQ(daemon.wait(), row.status) << row.keys;
        const int background = daemon_process::wait_for_background();
        EXPECT_TRUE(row.refuse != no_session || background == 1);
        EXPECT_EQ(daemon.output(), row.output) << row.keys << row.words.back();
    }
    std::filesystem::current_path("/");
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
        const std::size_t gets = server.gets();
        daemon_process daemon(directory, {name, configuration(row.key), "-D"}, row.prepare);
        ASSERT_TRUE(daemon.follow_into_background());
        ASSERT_TRUE(wait_until([&] { return server.gets() > gets; }));
        EXPECT_EQ(std::filesystem::read_symlink(daemon.proc("cwd")), "/");
        std::stringstream status;
        status << std::ifstream(daemon.proc("status")).rdbuf();
        const std::regex lines("[^]*Umask:\t0000\n[^]*SigIgn:\t\\w{11}[13579bdf]\\w{4}\n[^]*");
        EXPECT_TRUE(std::regex_match(status.str(), lines)) << "file mask, SIGCHLD ignored";
        EXPECT_EQ(std::filesystem::read_symlink(daemon.proc("fd/1")), row.output);
        EXPECT_TRUE(std::filesystem::is_symlink(daemon.proc("fd/0")));
        for (const auto& file : std::filesystem::directory_iterator(daemon.proc("fd"))) {
            EXPECT_NE(read_symlink(file), "/dev/zero") << file;
        }
        daemon.signal(SIGTERM);
        EXPECT_EQ(daemon.wait(), 0);
    }
}

TEST_F(daemon_binary, runs_in_the_foreground_until_it_is_terminated) {
    daemon_process daemon(directory, {name, configuration("log=yes\nversion=x\n")});
    ASSERT_TRUE(attached());
    daemon.signal(SIGINT);
    daemon.signal(SIGPIPE);
    daemon.signal(SIGALRM);
    const std::size_t gets = server.gets();
    ASSERT_TRUE(wait_until([&] { return server.gets() > gets + 2; }));
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_EQ(last_request(), delete_interface);
    EXPECT_TRUE(ends_with(daemon.output(), closing_lines)) << daemon.output();
    texts lines = lines_after_kernel(daemon);
    const std::regex version(R"(ZW device module version: \S+-\d+-g[0-9a-f]{12} \(built on )"
                             R"([A-Z][a-z]{2} [ \d]\d \d{4} \d\d:\d\d:\d\d\))");
    EXPECT_TRUE(std::regex_match(lines.front(), version)) << lines.front();
    const auto no_signal = [](const std::string& line) { return line.rfind("received", 0) != 0; };
    lines.erase(std::remove_if(lines.begin(), lines.end(), no_signal), lines.end());
    EXPECT_EQ(lines, (texts{"received interrupt signal ", "received broken pipe signal ",
                            "received terminate signal "}));
}

TEST_F(daemon_binary, logs_to_its_file_and_opens_all_close_on_exec) {
    std::promise<std::map<std::string, int>> open;
    std::promise<const daemon_process*> started;
    core.answer_with([&, asked = false](const std::string& request) mutable {
        if (!std::exchange(asked, asked || request.find("active_bots") != std::string::npos) &&
            asked) {
            open.set_value(started.get_future().get()->closed_on_exec());
        }
        return std::optional<texts>();
    });
    static_cast<void>(directory.write("csi_receiver.log", "old"));
    const std::string more = "log_path=" + directory.path + "/\nexecname=y\n";
    daemon_process daemon(directory, {name, configuration(more)});
    started.set_value(&daemon);
    ASSERT_TRUE(attached());
    const std::map<std::string, int> during_request = open.get_future().get();
    daemon.signal(SIGHUP);
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_EQ(during_request,
              (std::map<std::string, int>{{"socket", 2},
                                          {"anon_inode:[signalfd]", 1},
                                          {directory.path + "/csi_receiver.log", 1}}));
    EXPECT_TRUE(ends_with(daemon.output(), closing_lines)) << daemon.output();
    EXPECT_EQ(daemon.output().find("Connected"), std::string::npos);
    const std::string text = directory.read("csi_receiver.log");
    EXPECT_EQ(text.rfind("ZW device module version: ", 0), 0U);
    EXPECT_TRUE(ends_with(text, "] received hangup signal \n")) << text;
    EXPECT_EQ(directory.read("csi_receiver.log.1"), "old");
}

TEST_F(daemon_binary, opens_the_standard_descriptors_that_are_closed) {
    daemon_process daemon(directory, {name, configuration("log=no\n")}, [] {
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            close(fd);
        }
    });
    ASSERT_TRUE(attached());
    for (const char* const fd : {"fd/0", "fd/1", "fd/2"}) {
        EXPECT_EQ(std::filesystem::read_symlink(daemon.proc(fd)), "/dev/null");
    }
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(daemon_binary, keeps_running_when_nobody_reads_its_log) {
    const std::string pipe = directory.path + "/output"; // instead of a file
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    daemon_process daemon(directory, {name, configuration("log=no\n")});
    ASSERT_TRUE(attached());
    close(reader);
    server.queue(R"({"cmd":"associate"})"); // its line is the first that nobody reads
    const std::size_t gets = server.gets();
    ASSERT_TRUE(wait_until([&] { return server.gets() > gets + 10; }));
    EXPECT_LT(daemon.cpu_ms(), 500) << "each lost line causes another one";
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(native_daemon, runs_in_the_background_and_rotates_its_log) {
    const std::string log = directory.path + "/log";
    daemon_process daemon(directory, {name, configuration("log_path=" + log + "\n"), "-D"});
    ASSERT_TRUE(daemon.follow_into_background());
    ASSERT_TRUE(attached());
    // Each is logged twice: when it arrives, and with its answer. Above 16 KiB it would arrive in
    // two chunks.
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
    EXPECT_EQ(daemon.output(), "");
    EXPECT_EQ(last_request(), delete_interface);
    EXPECT_TRUE(
        ends_with(directory.read("log/csi_receiver.log"), "] received terminate signal \n"));
}

TEST_F(daemon_binary, a_wrong_type_from_the_core_service_ends_it) {
    core.answer_with([](const std::string&) { return texts{R"({"ping":1,"success":"yes"})"}; });
    daemon_process daemon(directory, {name, configuration("log=no\n")});
    EXPECT_EQ(daemon.wait(), -SIGABRT);
}

TEST_F(daemon_binary, starts_nothing_new_when_it_is_terminated_in_mid_request) {
    const struct {
        const char* request; // the daemon is terminated while this is under way
        int nth;             // for the nth time
        bool by_timer;       // on a timer's thread: the main thread is free to notice
    } rows[] = {
        {R"({"ping":)", 1, false},            // start-up waits for the core service
        {R"("cmd":"info")", 1, false},        // an attach would come next
        {R"("cmd":"active_bots")", 1, false}, // a scan begins
        {R"("rate":10)", 1, false},           // it starts the first of two Bots
        {R"("cmd":"active_bots")", 2, true},  // it looks for them
        {R"("rate":0)", 1, true},             // it stops the one that it found
    };
    core.set_present("102", false);
    for (const auto& row : rows) {
        std::promise<const daemon_process*> started;
        int left = row.nth;
        std::atomic<bool> terminated{false};
        std::atomic<std::size_t> asked{0};
        std::atomic<std::size_t> posts{0};
        journal.clear();
        core.answer_with([&](const std::string& request) {
            if (request.find(row.request) != std::string::npos && --left == 0) {
                asked = journal.count("daemon", core.peer().name());
                posts = server.posts();
                const daemon_process* const daemon = started.get_future().get();
                daemon->signal(SIGTERM);
                terminated = true;
                EXPECT_TRUE(!row.by_timer || wait_until([daemon] {
                    return daemon->output().find("Stopping the") != std::string::npos;
                }));
            }
            return std::optional<texts>();
        });
        daemon_process daemon(directory, {name, configuration(two_bots)});
        started.set_value(&daemon);
        ASSERT_TRUE(wait_until([&terminated] { return terminated.load(); })) << row.request;
        expect_end(daemon, asked);
        EXPECT_EQ(server.posts(), posts) << row.request;
        core.answer_with({});
    }
}

TEST_F(daemon_binary, does_not_wait_for_the_next_check_of_a_scan) {
    core.set_present("102", false);
    daemon_process daemon(directory, {name, configuration(two_bots)});
    // Start-up sends three requests and the beginning of a scan three more; the first check finds a
    // Bot and stops it, the second finds none.
    ASSERT_TRUE(wait_until([this] { return journal.count(core.peer().name(), "daemon") == 9; }));
    daemon.signal(SIGTERM);
    expect_end(daemon, 9);
}

TEST_F(daemon_binary, finishes_the_report_that_it_is_sending) {
    std::atomic<bool> reported{false};
    core.answer_with([&](const std::string& request) {
        if (reported && request.find(R"("rate":0)") != std::string::npos) {
            server.set_silent(true); // the scan report comes next
        }
        return std::optional<texts>();
    });
    daemon_process daemon(directory, {name, configuration("log=no\n")});
    const auto is_sent = [this](const std::string& text) {
        return wait_until([&] { return journal.messages().back().text.rfind(text, 0) == 0; }, 20s);
    };
    ASSERT_TRUE(attached());
    ASSERT_TRUE(is_sent(R"({"bot_info":)")); // the first scan, which sends no report, is over
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
