#include "soak/worst.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <utility>

#include "peers/installation.h"
#include "soak/daemon.h"
#include "soak/log.h"

namespace csi_soak {
namespace {

using std::chrono::seconds;

constexpr std::chrono::milliseconds turn(10);
constexpr seconds patience(300);
constexpr const char* times_check = "nothing takes longer than the time-outs add up to";
constexpr const char* start_all =
    R"({"cmd":"start","bots":[101,102,103,104],"engineType":"motion2"})";
constexpr const char* ask_fusion = R"({"cmd":"state","bot":101,"engineType":"cpd"})";

peers::installation_options lab_options() {
    peers::installation_options result;
    result.zorvins = 2;
    result.bots = 4;
    result.http_port = 0;
    result.fusion = true;
    result.times = {std::chrono::milliseconds(300), std::chrono::milliseconds(500)};
    return result;
}

/// A slow start leaves time to silence core services in its midst.
enum class start { quick, slow };

std::unique_ptr<peers::installation> make_lab(peers::journal& record, start pace) {
    const peers::installation_options options = lab_options();
    auto lab = std::make_unique<peers::installation>(record, options);
    if (pace == start::slow) {
        for (unsigned index = 0; index < options.zorvins; ++index) {
            lab->core(index).peer().set_delay(std::chrono::milliseconds(500));
        }
    }
    return lab;
}

bool has(const peers::message& what, const char* text) {
    return what.text.find(text) != std::string::npos;
}

/// A lab and a daemon in it, made anew for each case.
class stage {
public:
    using condition = std::function<bool()>;

    stage(const soak_options& options, const std::string& name, soak_report& report,
          start pace = start::quick)
        : report_(report)
        , lab_(make_lab(journal_, pace))
        , daemon_(options.daemon, options.folder + "/" + name,
                  lab_->configuration() + (pace == start::slow ? "csi_file=/dev/null\n" : ""))
        , log_(daemon_.log_path(), report) {
        report_.say(name);
    }

    /// Without any peer; the configuration names so many core services, with a Bot each.
    stage(const soak_options& options, const std::string& name, soak_report& report,
          unsigned core_services)
        : report_(report)
        , daemon_(options.daemon, options.folder + "/" + name, lonely(core_services))
        , log_(daemon_.log_path(), report) {
        report_.say(name);
    }

    void attach() {
        wait_for([this] { return heard("daemon", "server", R"("bot_info":[{"bot":101)"); });
    }

    /// Waits until it holds, and tells how long that took.
    soak_clock::duration wait_for(const condition& holds) {
        const soak_clock::time_point begin = soak_clock::now();
        for (log_.read(); !holds(); log_.read()) {
            if (daemon_.wait(turn) || soak_clock::now() - begin > patience) {
                throw std::runtime_error("a worst case did not come about: " + daemon_.errors());
            }
        }
        return soak_clock::now() - begin;
    }

    [[nodiscard]] bool heard(const char* from, const char* to, const char* text) const {
        const auto all = journal_.select(from, to);
        return std::any_of(all.begin(), all.end(),
                           [text](const peers::message& one) { return has(one, text); });
    }

    void silence(const char* who) { static_cast<void>(lab_->set_silent(who, true)); }

    /// Hands the command out; returns when the daemon has it.
    void hand_out(const char* command) {
        lab_->server().queue(command);
        wait_for([&] { return heard("server", "daemon", command); });
    }

    void start_scan() {
        hand_out(R"({"cmd":"scan"})");
        wait_for([this] { return log_.scanning(); });
    }

    soak_clock::duration terminate() {
        const soak_clock::time_point begin = soak_clock::now();
        daemon_.terminate();
        const auto ending = daemon_.wait(patience);
        report_.violation_unless(ending && ending->status == 0, "SIGTERM ends the daemon well",
                                 "with another status than 0");
        return soak_clock::now() - begin;
    }

    [[nodiscard]] const soak_log::counts& log() const { return log_.count(); }
    [[nodiscard]] peers::installation& lab() { return *lab_; }

private:
    static std::string lonely(unsigned core_services) {
        peers::installation_options options;
        options.zorvins = core_services;
        options.bots = core_services;
        return configuration(options);
    }

    soak_report& report_;
    peers::journal journal_;
    std::unique_ptr<peers::installation> lab_;
    soak_daemon daemon_;
    soak_log log_;
};

/// One measured time, and what the time-outs in it add up to.
struct timed_case {
    const char* name;
    const char* meaning;
    seconds bound;
    soak_clock::duration (*measure)(stage&);
    start pace = start::quick; // slow ones are measured in it, others when the daemon has attached
};

soak_clock::duration command_at_silent_server(stage& on) {
    on.lab().fusion()->peer().set_delay(std::chrono::milliseconds(500)); // Time to fall silent.
    on.hand_out(ask_fusion);
    on.silence("server");
    on.wait_for([&] { return on.heard("daemon", "server", R"("state":)"); });
    return on.wait_for([&] { return on.log().failures == 1; });
}

soak_clock::duration scan_at_silent_server(stage& on) {
    on.start_scan();
    on.silence("server");
    return on.wait_for([&] { return on.log().scans == 1; });
}

soak_clock::duration end_at_silent_server(stage& on) {
    // The scan's report is under way, and the reply to a command waits behind it.
    on.silence("fusion");
    on.start_scan();
    on.hand_out(ask_fusion);
    on.wait_for([&] { return on.heard("daemon", "fusion", "cpd"); });
    on.silence("server");
    on.wait_for([&] { return on.heard("daemon", "server", R"("cmd":"scan")"); });
    return on.terminate();
}

soak_clock::duration command_at_silent_core(stage& on) {
    on.silence("core");
    on.hand_out(start_all);
    return on.wait_for([&] { return on.heard("daemon", "server", "Engine object error"); });
}

soak_clock::duration scan_at_silent_core(stage& on) {
    on.silence("core");
    on.hand_out(R"({"cmd":"scan"})");
    // Its last deed is to stop the four Bots that it did not find.
    return on.wait_for([&] { return on.log().stops == 4; });
}

soak_clock::duration end_at_silent_core(stage& on) {
    on.start_scan();
    on.silence("core");
    on.hand_out(start_all);
    on.wait_for([&] { return on.heard("daemon", "core 127.0.0.1", R"("rate":10)"); });
    return on.terminate();
}

soak_clock::duration end_of_start_at_silent_core(stage& on) {
    on.wait_for([&] { return on.heard("daemon", "core 127.0.0.2", "ping"); });
    on.silence("core");
    on.wait_for([&] { return on.heard("daemon", "core 127.0.0.1", "add_interface"); });
    return on.terminate();
}

constexpr timed_case timed_cases[] = {
    {"server silent, a command", "reply sent, until the daemon gives it up", seconds(21),
     command_at_silent_server},
    {"server silent, a scan", "first Bot sounded, until the report is given up", seconds(28),
     scan_at_silent_server},
    {"server silent, SIGTERM", "a report and a reply are to be sent", seconds(42),
     end_at_silent_server},
    {"core silent, a command", "engine start for four Bots, until its reply", seconds(22),
     command_at_silent_core},
    {"core silent, a scan", "command, until the last of four Bots is stopped", seconds(140),
     scan_at_silent_core},
    {"core silent, SIGTERM", "in an engine start for four Bots", seconds(34), end_at_silent_core},
    {"core silent at the start, SIGTERM", "after its pings, with csi_file", seconds(34),
     end_of_start_at_silent_core, start::slow},
};

void measure_times(const soak_options& options, soak_report& report) {
    for (const timed_case& one : timed_cases) {
        stage on(options, one.name, report, one.pace);
        if (one.pace == start::quick) {
            on.attach();
        }
        const soak_clock::duration took = one.measure(on);
        report.say("took " + in_seconds(took));
        report.figure(one.name, in_seconds(took) + " (" + one.meaning + ")");
        report.violation_unless(took <= one.bound, times_check,
                                std::string(one.name) + ": " + in_seconds(took));
    }
    report.checked(times_check, std::to_string(std::size(timed_cases)) + " cases");
}

void measure_growth(const std::string& name, stage& on, seconds lasts, soak_report& report) {
    const std::size_t before = on.log().bytes;
    const soak_clock::time_point end = soak_clock::now() + lasts;
    on.wait_for([&] { return soak_clock::now() >= end; });
    const std::size_t grown = on.log().bytes - before;
    const auto hours = std::chrono::duration<double, std::ratio<3600>>(lasts).count();
    const auto hourly = static_cast<std::size_t>(static_cast<double>(grown) / hours);
    report.figure("log, " + name, std::to_string(hourly) + " bytes an hour (" +
                                      std::to_string(grown) + " in " + in_seconds(lasts) + ")");
}

void measure_growths(const soak_options& options, seconds lasts, soak_report& report) {
    {
        stage on(options, "attached and idle", report);
        on.attach();
        measure_growth("attached and idle", on, lasts, report);
        on.lab().server().stop();
        report.say("server gone");
        on.wait_for([&] { return on.log().failures == 1; });
        measure_growth("server gone, after its one line", on, lasts, report);
    }
    {
        stage on(options, "core services gone", report);
        on.attach();
        static_cast<void>(on.lab().stop("core"));
        measure_growth("core services gone while attached", on, lasts, report);
    }
    stage on(options, "two core services gone before the start", report, 2);
    measure_growth("two core services gone before the start", on, lasts, report);
}

/// So many core services that the log must be rotated while the daemon waits for them.
void fill_log_before_start(const soak_options& options, soak_report& report) {
    stage on(options, "250 core services gone before the start", report, 250);
    const auto took = on.wait_for([&] { return on.log().rotations == 5; });
    report.figure("log, five rotations before the start", "within " + in_seconds(took));
    report.checked("the log stays small", "largest file " + std::to_string(on.log().largest) +
                                              " bytes, bound " +
                                              std::to_string(soak_log::largest_file));
}

} // namespace

void measure_worst_cases(const soak_options& options, seconds each_state, soak_report& report) {
    measure_times(options, report);
    measure_growths(options, each_state, report);
    fill_log_before_start(options, report);
}

} // namespace csi_soak
