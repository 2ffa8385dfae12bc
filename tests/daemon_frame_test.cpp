// Configuration, log, signals and the kernel's description: the frame around the client.
#include <csignal>
#include <cstring>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "daemon/configuration.h"
#include "daemon/log.h"
#include "daemon/process.h"
#include "daemon/signals.h"
#include "support/fixtures.h"

using namespace csi_receiver;

TEST(configuration, lines) {
    const struct {
        const char* line;
        const char* key; // nullptr for a line that is not accepted
        const char* value;
    } rows[] = {
        {"server=10.0.0.1", "server", "10.0.0.1"},
        {" \tServer \v= Host A \r", "server", "Host A"},
        {"key=abc#def", "key", "abc"},
        {"key=#abc", nullptr, ""},
        {"#key=value", nullptr, ""},
        {"  #key=value", "#key", "value"},
        {"a#b=c", "a#b", "c"},
        {"no separator", nullptr, ""},
        {"", nullptr, ""},
        {"key=  \t", nullptr, ""},
        {"=value", "", "value"},
        {"a=b=c", "a", "b=c"},
    };
    for (const auto& row : rows) {
        const configuration_line line = parse_line(row.line, '=');
        ASSERT_EQ(line.accepted, row.key != nullptr) << row.line;
        if (line.accepted) {
            EXPECT_EQ(line.key, row.key) << row.line;
            EXPECT_EQ(line.value, row.value) << row.line;
        }
    }
}

TEST(configuration, files) {
    temporary_directory directory;
    const std::string path = directory.write("conf", "A=1\r\n#A=2\nb = 3\nA=4\nlast=5");
    configuration map = read_configuration(path, '=');
    EXPECT_EQ(map, (configuration{{"a", "4"}, {"b", "3"}, {"last", "5"}}));
    EXPECT_FALSE(has_key(map, "c"));
    EXPECT_EQ(get(map, "c"), "");
    EXPECT_TRUE(has_key(map, "c"));
    EXPECT_TRUE(read_configuration(directory.path + "/none", '=').empty());
    EXPECT_TRUE(read_configuration(directory.path, '=').empty());
}

TEST(log, prefix_is_unpadded_utc) {
    setenv("TZ", "EST5EDT", 1);
    tzset();
    EXPECT_EQ(format_log_prefix(1772874301), "[2026-3-7_9:5:1] ");
    EXPECT_EQ(format_log_prefix(4102444799), "[2099-12-31_23:59:59] ");
}

TEST(log, rotation_table) {
    // Before and after, each as the texts of the log, .1, .2 and .3; "-" where there is no file.
    const struct {
        const char* before[4];
        const char* after[4];
    } rows[] = {
        {{"-", "a", "b", "c"}, {"-", "a", "b", "c"}}, {{"", "a", "-", "-"}, {"", "a", "-", "-"}},
        {{"l", "-", "-", "-"}, {"-", "l", "-", "-"}}, {{"l", "a", "-", "c"}, {"-", "l", "a", "c"}},
        {{"l", "-", "b", "c"}, {"-", "l", "b", "c"}}, {{"l", "a", "b", "c"}, {"-", "l", "a", "b"}},
        {{"l", "a", "b", "-"}, {"-", "l", "a", "b"}},
    };
    const char* const names[] = {"log", "log.1", "log.2", "log.3"};
    for (const auto& row : rows) {
        temporary_directory directory;
        for (int file = 0; file < 4; ++file) {
            if (std::strcmp(row.before[file], "-") != 0) {
                static_cast<void>(directory.write(names[file], row.before[file]));
            }
        }
        rotate(directory.path + "/log");
        for (int file = 0; file < 4; ++file) {
            const std::string expected =
                std::strcmp(row.after[file], "-") == 0 ? "absent" : row.after[file];
            EXPECT_EQ(directory.read(names[file]), expected) << names[file];
        }
    }
}

TEST(log, redirection_rotates_at_its_limit_and_gives_the_streams_back) {
    temporary_directory directory;
    captured_output console;
    umask(0);
    {
        log_redirection log(directory.path + "/made", "x.log");
        const std::string path = directory.path + "/made/x.log";
        struct stat status {};
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0644U);
        print(std::string(static_cast<std::size_t>(log_size_limit), 'a'));
        EXPECT_FALSE(log.rotate_if_grown());
        print("b");
        EXPECT_TRUE(log.rotate_if_grown());
        print_to_console("for the console\n");
        std::cerr << "error text\n" << std::flush;
        EXPECT_FALSE(log.rotate_if_grown());
    }
    print("closing\n");
    EXPECT_EQ(console.text(), "for the console\nclosing\n");
    const std::string log = directory.read("made/x.log");
    EXPECT_EQ(log.substr(log.find(']')), "] log rotated\nerror text\n");
    EXPECT_EQ(directory.read("made/x.log.1").size(), static_cast<std::size_t>(log_size_limit) + 1);
    log_out.close();
}

TEST(log, lines_of_threads_stay_whole_while_the_log_rotates) {
    temporary_directory directory;
    {
        log_redirection log(directory.path, "x.log");
        std::vector<std::thread> writers;
        for (const char letter : {'a', 'b'}) {
            writers.emplace_back([letter] {
                for (int line = 0; line < 3000; ++line) {
                    log_prefix() << std::string(500, letter);
                }
            });
        }
        wait_until([&log] { return log.rotate_if_grown(); });
        for (std::thread& writer : writers) {
            writer.join();
        }
    }
    log_out.close();
    std::istringstream text(directory.read("x.log.1") + directory.read("x.log"));
    int lines = 0;
    for (std::string line; std::getline(text, line);) {
        const std::string message = line.substr(line.find(' ') + 1);
        if (message != "log rotated") {
            ++lines;
            EXPECT_EQ(message, std::string(500, message[0]));
        }
    }
    EXPECT_EQ(lines, 6000);
}

TEST(log, a_full_disk_loses_lines_and_tears_no_other) {
    temporary_directory directory;
    {
        log_redirection log(directory.path, "x.log");
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit small{50, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &small);
        print("[2] the first line, which there is room for\n");
        print("[2] the second one, of which a part fits\n");
        print("[2] lost\n");
        const rlimit large{RLIM_INFINITY, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &large);
        print("[2] the last line\n");
    }
    log_out.close();
    EXPECT_EQ(directory.read("x.log"), "[2] the first line, which there is room for\n[2] th"
                                       "\n[2] the last line\n");
}

TEST(log, a_file_that_cannot_be_opened_loses_lines_and_nothing_else) {
    captured_output console;
    {
        log_redirection log("/proc/no/such", "x.log");
        log_prefix() << "lost";
        EXPECT_FALSE(log.rotate_if_grown());
    }
    print("back\n");
    EXPECT_EQ(console.text(), "back\n");
}

TEST(signals, each_signal_and_its_line) {
    captured_output output;
    const int fd = create_signal_descriptor();
    ASSERT_GE(fd, 0);
    EXPECT_FALSE(read_signal(fd));
    const struct {
        int number;
        bool terminates;
        const char* line;
    } rows[] = {{SIGHUP, true, "received hangup signal "},
                {SIGINT, false, "received interrupt signal "},
                {SIGPIPE, false, "received broken pipe signal "},
                {SIGTERM, true, "received terminate signal "}};
    for (const auto& row : rows) {
        kill(getpid(), row.number);
        EXPECT_EQ(termination_pending(), row.terminates);
        EXPECT_EQ(read_signal(fd), row.terminates) << row.number;
        EXPECT_EQ(output.lines(), std::vector<std::string>{row.line});
    }
    kill(getpid(), SIGALRM);
    EXPECT_FALSE(read_signal(fd));

    // A thread that does not block the signals hands them to the main thread.
    std::thread careless([] {
        sigset_t none;
        sigemptyset(&none);
        pthread_sigmask(SIG_SETMASK, &none, nullptr);
        kill(getpid(), SIGTERM);
        pthread_kill(pthread_self(), SIGHUP);
    });
    careless.join();
    std::thread([] { EXPECT_TRUE(termination_pending()) << "on any thread"; }).join();
    EXPECT_TRUE(read_signal(fd));
    EXPECT_TRUE(read_signal(fd));
    EXPECT_FALSE(read_signal(fd));
    close(fd);

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    signalfd_siginfo record{};
    record.ssi_signo = 40;
    ASSERT_EQ(write(ends[1], &record, sizeof record), 128);
    ASSERT_EQ(write(ends[1], &record, 100), 100);
    static_cast<void>(output.lines());
    EXPECT_FALSE(read_signal(ends[0]));
    EXPECT_FALSE(read_signal(ends[0])); // a part of a record is none
    close(ends[0]);
    EXPECT_FALSE(read_signal(ends[0]));
    EXPECT_EQ(output.lines(),
              (std::vector<std::string>{"received unexpected signal number 40",
                                        "error reading signal descriptor: Bad file descriptor"}));
    close(ends[1]);
}

TEST(process, kernel_description_and_priorities) {
    EXPECT_TRUE(mentions_preemption("#1 SMP PREEMPT Thu Jan 1 00:00:00 UTC 2026"));
    EXPECT_FALSE(mentions_preemption("#1 SMP Thu Jan 1 00:00:00 UTC 2026"));
    EXPECT_EQ(get_priority(pthread_self()), 0);
    if (set_realtime_priority(pthread_self(), 1000) == 0) {
        EXPECT_EQ(get_priority(pthread_self()), 99); // clamped
    }
}
