// The log: prefix, rotation, redirection, and lines of several threads.
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "daemon/log.h"
#include "support/fixtures.h"

using namespace csi_receiver;

TEST(log, prefix_is_unpadded_utc) {
    setenv("TZ", "EST5EDT", 1);
    tzset();
    EXPECT_EQ(format_log_prefix(1772874301), "[2026-3-7_9:5:1] ");
    if (sizeof(std::time_t) > 4) {
        EXPECT_EQ(format_log_prefix(static_cast<std::time_t>(4102444799)),
                  "[2099-12-31_23:59:59] ");
    }
    captured_output output;
    const std::time_t before = std::time(nullptr);
    log_prefix() << "line " << -7;
    const bool in_time = output.text() == format_log_prefix(before) + "line -7\n" ||
                         output.text() == format_log_prefix(std::time(nullptr)) + "line -7\n";
    EXPECT_TRUE(in_time) << output.text();
}

TEST(log, rotation_table) {
    // The texts of the log, .1, .2 and .3 before and after: a letter each, "0" for an empty file
    // and
    // "-" for one that does not exist.
    for (const auto& [before, after] : {std::pair("-abc", "-abc"),
                                        {"0a--", "0a--"},
                                        {"l---", "-l--"},
                                        {"la-c", "-lac"},
                                        {"l-bc", "-lbc"},
                                        {"labc", "-lab"},
                                        {"lab-", "-lab"}}) {
        const temporary_directory directory;
        const texts names = {"log", "log.1", "log.2", "log.3"};
        for (std::size_t file = 0; file < names.size(); ++file) {
            if (before[file] != '-') {
                directory.write(names[file], {before + file, before[file] == '0' ? 0U : 1U});
            }
        }
        rotate(directory.path + "/log");
        std::string found;
        for (const std::string& name : names) {
            const std::string text = directory.read(name);
            found += text == "absent" ? "-" : text.empty() ? "0" : text;
        }
        EXPECT_EQ(found, after) << before;
    }
}

TEST(log, redirection_rotates_at_its_limit_and_gives_the_streams_back) {
    constexpr std::size_t limit = 2097152;
    temporary_directory directory;
    captured_output console;
    const std::streambuf* const own_error = std::cerr.rdbuf();
    umask(0);
    {
        log_redirection log(directory.path + "/made", "x.log");
        EXPECT_EQ(std::filesystem::status(directory.path + "/made/x.log").permissions(),
                  std::filesystem::perms(0644));
        EXPECT_EQ(std::filesystem::status(directory.path + "/made").permissions(),
                  std::filesystem::perms(0705));
        print(std::string(limit, 'a'));
        EXPECT_FALSE(log.rotate_if_grown());
        print("b");
        EXPECT_TRUE(log.rotate_if_grown());
        print_to_console("for the console\n");
        std::cerr << "error text\n" << std::flush;
        EXPECT_FALSE(log.rotate_if_grown());
    }
    EXPECT_TRUE(log_out.is_open());
    EXPECT_EQ(std::cerr.rdbuf(), own_error);
    print("closing\n");
    EXPECT_EQ(console.text(), "for the console\nclosing\n");
    const std::string log = directory.read("made/x.log");
    EXPECT_EQ(log.substr(log.find(']')), "] log rotated\nerror text\n");
    EXPECT_EQ(directory.read("made/x.log.1").size(), limit + 1);
}

TEST(log, a_log_that_cannot_be_renamed_is_overwritten) {
    temporary_directory directory;
    for (const char* const copy : {".1/full", ".2/full", ".3/full"}) {
        std::filesystem::create_directories(directory.write("x.log", "a long old text") + copy);
    }
    const log_redirection log(directory.path, "x.log");
    print("new\n");
    EXPECT_EQ(directory.read("x.log"), "new\n");
}

TEST(log, lines_of_threads_stay_whole_while_the_log_rotates) {
    temporary_directory directory;
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
    const texts lines = lines_of(directory.read("x.log.1") + directory.read("x.log"));
    for (const char letter : {'a', 'b'}) {
        EXPECT_EQ(std::count(lines.begin(), lines.end(), std::string(500, letter)), 3000);
    }
}

TEST(log, a_full_disk_loses_lines_and_damages_no_later_one) {
    temporary_directory directory;
    const log_redirection log(directory.path, "x.log");
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{50, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &small);
    print("[2] the first line, which fits\n");
    print("[2] the second one, which fits in part\n");
    print("[2] lost\n");
    const rlimit large{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &large);
    print("[2] the last line\n");
    EXPECT_EQ(directory.read("x.log"), "[2] the first line, which fits\n[2] the second one,"
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
