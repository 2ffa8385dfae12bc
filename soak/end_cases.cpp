#include "soak/end_cases.h"

#include <chrono>
#include <cstddef>
#include <iterator>
#include <string>

#include "soak/test_bed.h"

namespace csi_soak {
namespace {

using std::chrono::seconds;

constexpr const char* first_core = "core 127.0.0.1";
constexpr const char* scan = R"({"cmd":"scan"})";
constexpr const char* scan_in_report = R"("cmd":"scan")";
constexpr const char* query_fusion_engine = R"({"cmd":"state","bot":101,"engineType":"cpd"})";
constexpr const char* start_fifteen_engines =
    R"({"cmd":"start","bots":[101,102,103,104,105,106,107,108,109,110,111,112,113,114,115],)"
    R"("engineType":"motion2"})";

void wait_for_core_services(test_bed& bed) {
    bed.wait_for([&] { return bed.recorded("daemon", first_core, "ping"); });
}

void start_up(test_bed& bed) {
    bed.wait_for([&] { return bed.recorded("daemon", "core 127.0.0.2", "ping"); });
    bed.silence_and_await("core", first_core, "add_interface");
}

void attach_to_silent_server(test_bed& bed) {
    bed.wait_for([&] { return bed.recorded("daemon", "server", R"("type":"zorvin")"); });
}

void be_idle(test_bed& bed) {
    bed.wait_for_attach();
}

void be_idle_without_cores(test_bed& bed) {
    bed.wait_for_attach();
    bed.silence("core");
}

void poll(test_bed& bed) {
    bed.wait_for_attach();
    bed.silence("server");
    const std::size_t polls = bed.installation().server().gets();
    bed.wait_for([&] { return bed.installation().server().gets() > polls; });
}

void start_engines(test_bed& bed) {
    bed.wait_for_attach();
    bed.silence("core");
    bed.queue_and_await(start_fifteen_engines, first_core, R"("rate":10)");
}

void start_engines_without_server(test_bed& bed) {
    start_engines(bed);
    bed.silence("server");
}

void ask_fusion(test_bed& bed) {
    bed.wait_for_attach();
    bed.silence("fusion");
    bed.queue_and_await(query_fusion_engine, "fusion", "cpd");
}

void begin_scan(test_bed& bed) {
    bed.wait_for_attach();
    bed.silence("core");
    bed.queue_and_await(scan, first_core, "active_bots");
}

/// The scan asks for active Bots once when it starts, and then in each check.
void check_scan(test_bed& bed) {
    bed.wait_for_attach();
    bed.installation().set_present("101", false);
    const auto requests = [&] { return bed.count("daemon", first_core, "active_bots"); };
    const std::size_t before = requests();
    bed.start_scan();
    bed.wait_for([&] { return requests() >= before + 2; });
    bed.silence_and_await("core", first_core, "active_bots");
}

void report_scan(test_bed& bed) {
    bed.wait_for_attach();
    bed.start_scan();
    bed.silence_and_await("server", "server", scan_in_report);
}

/// The reply to a command waits behind the report.
void report_scan_and_reply(test_bed& bed) {
    bed.wait_for_attach();
    bed.silence("fusion");
    bed.start_scan();
    bed.send_command(query_fusion_engine);
    bed.wait_for([&] { return bed.recorded("daemon", "fusion", "cpd"); });
    bed.silence_and_await("server", "server", scan_in_report);
}

struct end_case {
    const char* state;
    seconds exchange;           // the one in hand: its timeouts
    seconds answer;             // the answer to a command, which is still sent to the server
    unsigned silent_interfaces; // whose core services do not answer when they are removed
    void (*reach)(test_bed&);   // gets the daemon into the state
    bed_layout layout = {};

    [[nodiscard]] seconds bound() const {
        return exchange + answer + seconds(4) * silent_interfaces;
    }
};

constexpr seconds none(0);
constexpr seconds core(4);
constexpr seconds fusion(7);
constexpr seconds get(5);
constexpr seconds post(20);

constexpr end_case end_cases[] = {
    {"waiting for three silent core services",
     core,
     none,
     3,
     wait_for_core_services,
     {3, 6, false, "core"}},
    {"start-up after the pings, core services silent", core, none, 2, start_up, {2, 4, true}},
    {"attaching to a silent server",
     post,
     none,
     0,
     attach_to_silent_server,
     {2, 4, false, "server"}},
    {"attached and idle", none, none, 0, be_idle},
    {"attached and idle, core services silent", none, none, 2, be_idle_without_cores},
    {"polling a silent server", get, none, 0, poll},
    {"engine start for 15 Bots, core services silent", core, none, 2, start_engines, {2, 15}},
    {"engine start for 15 Bots, core services and server silent",
     core,
     post,
     2,
     start_engines_without_server,
     {2, 15}},
    {"engine command, fusion daemon silent", fusion, none, 0, ask_fusion},
    {"start of a scan, core services silent", core, none, 2, begin_scan},
    {"check of a scan, core services silent", core, none, 2, check_scan},
    {"report of a scan to a silent server", post, none, 0, report_scan},
    {"report of a scan to a silent server, a reply behind it", post, post, 0,
     report_scan_and_reply},
};

} // namespace

void measure_ends(const run_options& options, reporter& report) {
    const char* const check = "the end takes no longer than its bound";
    constexpr seconds margin(1);
    for (const end_case& one : end_cases) {
        test_bed bed(options, one.state, report, one.layout);
        one.reach(bed);
        const steady_clock::duration time = bed.terminate();
        const std::string seen =
            std::to_string(one.bound().count()) + " s bound, " + in_seconds(time);
        report.print("SIGTERM: " + seen);
        report.add_figure(std::string("SIGTERM, ") + one.state, seen);
        report.expect(time <= one.bound() + margin, check, std::string(one.state) + ": " + seen);
    }
    report.add_check(check, std::to_string(std::size(end_cases)) + " states, margin " +
                                in_seconds(margin));
}

} // namespace csi_soak
