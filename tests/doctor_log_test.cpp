// csi_doctor log: what it reads in the daemon's log, and what it does not believe.
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "doctor/log_command.h"
#include "doctor/log_history.h"
#include "doctor/log_report.h"
#include "doctor/log_timeline.h"
#include "support/fixtures.h"
#include "support/vectors.h"

using namespace csi_doctor;

static const std::string source_folder = std::string(CSI_RECEIVER_VECTORS) + "/../../";

/// What the members of `expected` do not have in common with `got`; empty for nothing. Arrays have
/// as many elements.
static std::string difference(const json::value& expected, const json::value& got) {
    if (expected.IsObject() && got.IsObject()) {
        std::string all;
        for (const auto& member : expected.GetObject()) {
            const json::value* const found = json::find(got, wire_text(member.name));
            all += found != nullptr ? difference(member.value, *found)
                                    : "no " + wire_text(member.name) + "; ";
        }
        return all;
    }
    if (expected.IsArray() && got.IsArray() && expected.Size() == got.Size()) {
        std::string all;
        for (rapidjson::SizeType at = 0; at < expected.Size(); ++at) {
            all += difference(expected[at], got[at]);
        }
        return all;
    }
    return expected == got ? "" : json::write(got) + " instead of " + json::write(expected) + "; ";
}

static std::string joined(const json::value& lines) {
    std::string text;
    for (const json::value& line : lines.GetArray()) {
        text += wire_text(line) + "\n";
    }
    return text;
}

TEST(doctor_log, histories) {
    for_each_case("doctor/log", [](const json::value& one) {
        std::vector<std::string> paths;
        for_each_member(one, "files",
                        [&](const char* name, const auto&) { paths.push_back(name); });
        log_historian historian(missing_between(paths));
        for (const std::string& path : in_order_of_rotation(paths)) {
            log_file file;
            file.path = path;
            file.text = joined(one["files"][path]);
            read_entries(file);
            historian.add(file);
        }
        const log_history& history = historian.history();
        EXPECT_EQ(difference(one["json"], json::parse(to_json(history))), "") << to_json(history);
        EXPECT_EQ(history.has_faults() ? 1 : 0, one["status"].GetInt());
        for_each(one, "says", [&](const json::value& words) {
            EXPECT_NE(to_text(history).find(wire_text(words)), std::string::npos)
                << to_text(history) << wire_text(words);
        });
    });
}

static bool is_known(const std::string& line) {
    return recognise(line, true).kind != line_kind::unknown ||
           recognise(line, false).kind != line_kind::unknown;
}

TEST(doctor_log, knows_each_documented_line) {
    const std::string text = read_file(source_folder + "docs/operations.md");
    const std::size_t begin = text.find("\n## The log, line by line");
    std::string section = text.substr(begin, text.find("\n## ", begin + 1) - begin);
    const std::size_t reasons = section.find("\n| Reason |"); // parts of lines
    section.erase(reasons, section.find("\n\n", reasons) - reasons);
    static const std::regex row("\n(\\| `[^|]*|    core service [^\n]*)");
    static const std::regex line("`([^`]+)`|    (.*)");
    int count = 0;
    for (std::sregex_iterator cell(section.begin(), section.end(), row), end; cell != end; ++cell) {
        const std::string lines = cell->str(1);
        for (std::sregex_iterator one(lines.begin(), lines.end(), line), last; one != last; ++one) {
            EXPECT_TRUE(is_known(one->str(1) + one->str(2))) << one->str();
            ++count;
        }
    }
    EXPECT_GT(count, 40);
}

/// What the daemon's source code puts after the time: the texts, with "X" for the values.
static std::vector<std::string> lines_in_source(const std::string& source) {
    static const std::regex statement(R"re(log_prefix\(\)\s*<<([^;]*);)re");
    static const std::regex part(R"re([^<]*?"((?:[^"\\]|\\.)*)"[^<]*|[^<]+)re");
    std::vector<std::string> lines;
    for (std::sregex_iterator one(source.begin(), source.end(), statement), end; one != end;
         ++one) {
        const std::string parts = one->str(1);
        std::string line;
        for (std::sregex_iterator each(parts.begin(), parts.end(), part), last; each != last;
             ++each) {
            line += (*each)[1].matched ? each->str(1) : "X";
        }
        lines.push_back(std::regex_replace(line, std::regex(R"(\\")"), "\""));
    }
    return lines;
}

TEST(doctor_log, knows_each_line_in_the_source) {
    int count = 0;
    for (const auto& file : std::filesystem::recursive_directory_iterator(source_folder + "src")) {
        // The daemon does not call the functions in utilities.cpp that log.
        if (file.path().extension() != ".cpp" || file.path().filename() == "utilities.cpp") {
            continue;
        }
        for (const std::string& line : lines_in_source(read_file(file.path()))) {
            EXPECT_NE(recognise(line, true).kind, line_kind::unknown) << line;
            ++count;
        }
    }
    EXPECT_GT(count, 30);
}

/// Standard output and standard error.
static std::string output_of(const std::vector<std::string>& arguments, int status) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int returned = run_log_command(arguments);
    std::string text =
        testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    EXPECT_EQ(returned, status) << text;
    return text;
}

TEST(doctor_log, command_line) {
    const temporary_directory directory;
    const std::string good = directory.write("csi_receiver.log", "ZW device module version: 1\n");
    const std::string large = directory.write("large", std::string(4'194'304, '\n'));
    const std::string rotated = directory.write("csi_receiver.log.1", "[2026-1-1_1:1:1] Scan");
    const std::string other = directory.write("other", "[section]\nkey=value\n");
    const std::string binary = directory.write("binary", std::string("\x7f"
                                                                     "ELF\0\n",
                                                                     6));
    const std::string compressed = directory.write("x.gz", std::string("\x1f\x8b\x08\0", 4));
    const std::string fifo = directory.path + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* says;
    } rows[] = {
        {{good}, 0, "Version 1, running since an unknown time"},
        {{"--json", good}, 0, R"({"log":{"begin":null)"},
        {{good, "--svg"}, 0, "No line of the log has a time."},
        {{"--help"}, 0, "usage: csi_doctor CONF"},
        {{}, 2, "no log file given"},
        {{good, "--quiet"}, 2, "unknown option \"--quiet\""},
        {{good, "--svg", "--json"}, 2, "exclude each other"},
        {{good, directory.path}, 2, "it is a directory"},
        {{good, directory.path + "/none"}, 2, "No such file"},
        {{fifo}, 2, "it is a FIFO"},
        {{large}, 2, "it has 4 MiB or more"},
        {{good, rotated, good}, 0, " UTC, 2 files, 2 lines"},
        {{good, directory.path + "/./csi_receiver.log"}, 0, " UTC, 1 file, 1 line"},
        {{good, directory.path + "/./csi_receiver.log.1"}, 0, "Version 1, running"},
        {{directory.write("empty", "")}, 0, "No run of the daemon"},
        {{good, other}, 2, "/other\": no line in it is the daemon's\n"},
        {{binary}, 2, "no line in it is the daemon's; it contains NUL bytes\n"},
        {{compressed}, 2, "no line in it is the daemon's; it is compressed by gzip\n"},
    };
    for (const auto& row : rows) {
        EXPECT_NE(output_of(row.arguments, row.status).find(row.says), std::string::npos)
            << row.says;
    }
}

TEST(doctor_log, timeline) {
    log_file file;
    file.text = "ZW device module version: 1\n"
                "[2026-11-21_0:0:0] Connected to REST server at a:1\n"
                "[2026-11-21_6:0:0] request to <&\"> failed: <&\">\n"
                "[2026-11-21_12:0:0] 127.0.0.1: failed to send {}\n";
    read_entries(file);
    log_historian historian;
    historian.add(file);
    const std::string svg = to_svg(historian.history());
    for (const char* words :
         {R"(<rect x="110.0" y="58.0" width="430.0" height="24.0" class="attached">)",
          R"(<rect x="540.0" y="58.0" width="430.0" height="24.0" class="outage"><title>outage )"
          "from 2026-11-21 06:00:00, at least 6 h<",
          "attached from 2026-11-21 00:00:00, 6 h<", "2, at most 1 per column"}) {
        EXPECT_NE(svg.find(words), std::string::npos) << words << svg;
    }
}
