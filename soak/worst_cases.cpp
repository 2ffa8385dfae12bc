#include "soak/worst_cases.h"

#include <cstddef>
#include <iterator>
#include <ratio>
#include <string>

#include "soak/log_reader.h"
#include "soak/test_bed.h"

namespace csi_soak {
namespace {

using std::chrono::seconds;

constexpr const char* start_four_engines =
    R"({"cmd":"start","bots":[101,102,103,104],"engineType":"motion2"})";
constexpr const char* query_fusion_engine = R"({"cmd":"state","bot":101,"engineType":"cpd"})";
constexpr const char* scan = R"({"cmd":"scan"})";

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

/// While the scan's report is being sent, and the reply to a command waits for it.
steady_clock::duration exit_with_silent_server(test_bed& bed) {
    bed.silence("fusion");
    bed.start_scan();
    bed.send_command(query_fusion_engine);
    bed.wait_for([&] { return bed.recorded("daemon", "fusion", "cpd"); });
    bed.silence("server");
    bed.wait_for([&] { return bed.recorded("daemon", "server", R"("cmd":"scan")"); });
    return bed.terminate();
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

steady_clock::duration exit_with_silent_cores(test_bed& bed) {
    bed.start_scan();
    bed.silence("core");
    bed.send_command(start_four_engines);
    bed.wait_for([&] { return bed.recorded("daemon", "core 127.0.0.1", R"("rate":10)"); });
    return bed.terminate();
}

steady_clock::duration exit_at_start_with_silent_cores(test_bed& bed) {
    bed.wait_for([&] { return bed.recorded("daemon", "core 127.0.0.2", "ping"); });
    bed.silence("core");
    bed.wait_for([&] { return bed.recorded("daemon", "core 127.0.0.1", "add_interface"); });
    return bed.terminate();
}

struct timed_case {
    const char* name;
    const char* meaning; // of the time
    seconds limit;       // the sum of the timeouts in it, and a margin
    steady_clock::duration (*measure)(test_bed&);
    core_speed speed = core_speed::normal; // slow: measured during the start, not when attached
};

constexpr timed_case timed_cases[] = {
    {"server silent, command", "from sending the reply to giving it up", seconds(21),
     command_with_silent_server},
    {"server silent, scan", "from sounding the first Bot to giving up the report", seconds(28),
     scan_with_silent_server},
    {"server silent, SIGTERM", "while a report is being sent and a reply waits", seconds(42),
     exit_with_silent_server},
    {"core services silent, command", "from an engine start for four Bots to its reply",
     seconds(22), command_with_silent_cores},
    {"core services silent, scan", "from the command to stopping the last of four Bots",
     seconds(140), scan_with_silent_cores},
    {"core services silent, SIGTERM", "during an engine start for four Bots", seconds(34),
     exit_with_silent_cores},
    {"core services silent at start, SIGTERM", "after the pings, with csi_file", seconds(34),
     exit_at_start_with_silent_cores, core_speed::slow},
};

void measure_times(const run_options& options, reporter& report) {
    const char* const check = "nothing takes longer than its timeouts add up to";
    for (const timed_case& one : timed_cases) {
        test_bed bed(options, one.name, report, one.speed);
        if (one.speed == core_speed::normal) {
            bed.wait_for_attach();
        }
        const steady_clock::duration time = one.measure(bed);
        report.print("took " + in_seconds(time));
        report.add_figure(one.name, in_seconds(time) + " (" + one.meaning + ")");
        report.expect(time <= one.limit, check, std::string(one.name) + ": " + in_seconds(time));
    }
    report.add_check(check, std::to_string(std::size(timed_cases)) + " cases");
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
    test_bed bed(options, "attached and idle", report);
    bed.wait_for_attach();
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
    measure_times(options, report);
    measure_log_with_server(options, each_state, report);
    measure_log_without_cores(options, each_state, report);
    fill_log_at_start(options, report);
}

} // namespace csi_soak
