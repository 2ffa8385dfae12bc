#include "soak/worst_cases.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <ratio>
#include <string>

#include "soak/end_cases.h"
#include "soak/fifo_log.h"
#include "soak/log_reader.h"
#include "soak/test_bed.h"

namespace csi_soak {
namespace {

using std::chrono::seconds;

constexpr const char* start_four_engines =
    R"({"cmd":"start","bots":[101,102,103,104],"engineType":"motion2"})";
constexpr const char* query_fusion_engine = R"({"cmd":"state","bot":101,"engineType":"cpd"})";
constexpr const char* scan = R"({"cmd":"scan"})";
constexpr const char* scan_report = R"("cmd":"scan")";

steady_clock::duration command_with_silent_server(test_bed& bed) {
    // Leaves time to silence the server before the reply.
    bed.installation().fusion()->peer().set_delay(std::chrono::milliseconds(500));
    bed.send_command(query_fusion_engine);
    bed.silence("server");
    bed.wait_for([&] { return bed.recorded("daemon", "server", R"("state":)"); });
    return bed.wait_for([&] { return bed.log().failed_requests == 1; });
}

steady_clock::duration scan_with_silent_server(test_bed& bed) {
    bed.start_scan();
    bed.silence("server");
    return bed.wait_for([&] { return bed.log().reported_scans == 1; });
}

steady_clock::duration command_with_silent_cores(test_bed& bed) {
    bed.silence("core");
    bed.send_command(start_four_engines);
    return bed.wait_for([&] { return bed.recorded("daemon", "server", "Engine object error"); });
}

/// At its end, the scan stops the four Bots that it has not found.
steady_clock::duration scan_with_silent_cores(test_bed& bed) {
    bed.silence("core");
    bed.send_command(scan);
    return bed.wait_for([&] { return bed.log().unanswered_stops == 4; });
}

struct timed_case {
    const char* name;
    const char* meaning; // of the time
    seconds limit;       // the sum of the timeouts in it, and a margin
    steady_clock::duration (*measure)(test_bed&);
};

constexpr timed_case timed_cases[] = {
    {"server silent, command", "from sending the reply to giving it up", seconds(21),
     command_with_silent_server},
    {"server silent, scan", "from sounding the first Bot to giving up the report", seconds(28),
     scan_with_silent_server},
    {"core services silent, command", "from an engine start for four Bots to its reply",
     seconds(22), command_with_silent_cores},
    {"core services silent, scan", "from the command to stopping the last of four Bots",
     seconds(140), scan_with_silent_cores},
};

void measure_times(const run_options& options, reporter& report) {
    const char* const check = "nothing takes longer than its timeouts add up to";
    for (const timed_case& one : timed_cases) {
        test_bed bed(options, one.name, report);
        bed.wait_for_attach();
        const steady_clock::duration time = one.measure(bed);
        report.print("took " + in_seconds(time));
        report.add_figure(one.name, in_seconds(time) + " (" + one.meaning + ")");
        report.expect(time <= one.limit, check, std::string(one.name) + ": " + in_seconds(time));
    }
    report.add_check(check, std::to_string(std::size(timed_cases)) + " cases");
}

/// How long the report of a scan waits for its turn, from the last request of the scan on.
std::chrono::system_clock::duration report_wait(const test_bed& bed) {
    std::chrono::system_clock::time_point last_request;
    for (const peers::message& message : bed.journal().select("daemon", "")) {
        if (message.to.rfind("core ", 0) == 0) {
            last_request = message.when;
        } else if (message.text.find(scan_report) != std::string::npos) {
            return message.when - last_request;
        }
    }
    return {};
}

/// Polls that the server holds follow one another without a gap, and the report must not wait for
/// more than the one in hand.
void measure_held_polls(const run_options& options, reporter& report) {
    const char* const check = "held polls do not delay a scan's report";
    constexpr std::chrono::milliseconds held(500);
    constexpr std::chrono::milliseconds limit(1500);
    for (const char* const interval : {"4", "100"}) {
        std::chrono::system_clock::duration longest{0};
        for (int scans = 0; scans < 3; ++scans) {
            const std::string number = std::to_string(scans + 1);
            test_bed bed(options, "polls held, interval " + std::string(interval) + ", " + number,
                         report);
            bed.wait_for_attach();
            bed.send_command(
                (R"({"cmd":"poll_interval","interval":)" + std::string(interval) + "}").c_str());
            bed.wait_for([&] { return bed.recorded("daemon", "server", "poll_interval"); });
            bed.installation().server().set_delay(held);
            bed.send_command(scan);
            bed.wait_for([&] { return bed.recorded("daemon", "server", scan_report); });
            longest = std::max(longest, report_wait(bed));
            static_cast<void>(bed.terminate());
        }
        const std::string seen = in_seconds(longest) + " at most";
        report.add_figure(std::string("polls held for 0.5 s, interval ") + interval,
                          seen + " from the last request of a scan to its report");
        report.expect(longest <= limit, check, std::string("interval ") + interval + ": " + seen);
    }
    report.add_check(check, "limit " + in_seconds(limit));
}

void measure_log_growth(const std::string& name, test_bed& bed, seconds duration,
                        reporter& report) {
    const std::size_t before = bed.log().bytes;
    const steady_clock::time_point end = steady_clock::now() + duration;
    bed.wait_for([&] { return steady_clock::now() >= end; });
    const std::size_t bytes = bed.log().bytes - before;
    const auto hours = std::chrono::duration<double, std::ratio<3600>>(duration).count();
    const auto hourly = static_cast<std::size_t>(static_cast<double>(bytes) / hours);
    report.add_figure("log, " + name, std::to_string(hourly) + " bytes per hour (" +
                                          std::to_string(bytes) + " in " + in_seconds(duration) +
                                          ")");
}

void measure_log_with_server(const run_options& options, seconds duration, reporter& report) {
    test_bed bed(options, "log while attached and idle", report);
    bed.wait_for_attach();
    const steady_clock::time_point settled = steady_clock::now() + seconds(1);
    bed.wait_for([&] { return steady_clock::now() >= settled; }); // the attach's last lines
    measure_log_growth("attached and idle", bed, duration, report);
    bed.installation().server().stop();
    report.print("server stopped");
    bed.wait_for([&] { return bed.log().failed_requests == 1; });
    measure_log_growth("server stopped, after its one line", bed, duration, report);
}

void measure_log_without_cores(const run_options& options, seconds duration, reporter& report) {
    const std::string while_attached = "core services stopped while attached";
    {
        test_bed bed(options, while_attached, report);
        bed.wait_for_attach();
        static_cast<void>(bed.installation().stop("core"));
        measure_log_growth(while_attached, bed, duration, report);
    }
    const std::string at_start = "two core services absent at start";
    test_bed bed(options, at_start, report, absent_core_services{2});
    measure_log_growth(at_start, bed, duration, report);
}

/// With so many core services absent, the log is rotated while the daemon waits for them.
void fill_log_at_start(const run_options& options, reporter& report) {
    test_bed bed(options, "250 core services absent at start", report, absent_core_services{250});
    const auto time = bed.wait_for([&] { return bed.log().rotations == 5; });
    report.add_figure("log, five rotations at start", "within " + in_seconds(time));
    report.add_check("the log stays small",
                     "largest file " + std::to_string(bed.log().largest_file) + " bytes, limit " +
                         std::to_string(log_reader::max_file_bytes));
}

} // namespace

void measure_worst_cases(const run_options& options, std::chrono::seconds each_state,
                         reporter& report) {
    check_fifo_as_log(options, report);
    measure_ends(options, report);
    measure_times(options, report);
    measure_held_polls(options, report);
    measure_log_with_server(options, each_state, report);
    measure_log_without_cores(options, each_state, report);
    fill_log_at_start(options, report);
}

} // namespace csi_soak
