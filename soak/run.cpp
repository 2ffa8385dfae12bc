#include "soak/run.h"

#include <algorithm>
#include <functional>
#include <utility>

#include <sys/wait.h>

#include "soak/daemon.h"
#include "soak/faults.h"
#include "soak/log.h"
#include "soak/record.h"
#include "soak/watch.h"

namespace csi_soak {
namespace {

constexpr unsigned bots = 4;
constexpr std::size_t queue_depth = 20;
constexpr std::size_t kept_messages = 1000; // The record sees each one as it comes.
constexpr std::chrono::milliseconds turn(50);
constexpr std::chrono::seconds longest_start{15};
constexpr std::chrono::seconds longest_answer{30};
constexpr std::chrono::seconds longest_end{15};
constexpr double least_rate = 5; // A second; a poll that ends early costs up to a fifth of one.
constexpr const char* attach_answer = R"({"cmd":"associate"})";

peers::installation_options lab_options(std::uint32_t seed) {
    peers::installation_options result;
    result.zorvins = 2;
    result.bots = bots;
    result.api = seed % 2 == 0 ? "v2" : "v3";
    result.http_port = 0;
    result.fusion = true;
    result.seed = seed;
    result.times = {std::chrono::milliseconds(300), std::chrono::milliseconds(500)};
    return result;
}

class soak {
public:
    soak(const soak_options& options, soak_report& report)
        : report_(report)
        , record_(report, soak_bots(bots), attach_answer)
        , journal_(kept_messages)
        , lab_(observed(), lab_options(options.seed))
        , daemon_(options.daemon, options.folder, lab_.configuration())
        , log_(daemon_.log_path(), report)
        , watch_(report)
        , commands_(options.seed, soak_bots(bots))
        , server_faults_(lab_, record_, log_, report, options.seed + 1)
        , peer_faults_(lab_, record_, report, options.seed + 2)
        , bot_faults_(lab_, soak_bots(bots), options.seed + 3) {}

    void run(std::chrono::duration<double> lasts);

private:
    peers::journal& observed();
    bool go_on_until(const std::function<bool()>& done, soak_clock::duration bound);
    void play_faults(soak_clock::duration lasts);
    void play_calm(soak_clock::duration lasts);
    void feed();
    void end_daemon();
    void judge_end(const std::optional<soak_daemon::ending>& ending, soak_clock::duration took);
    void judge_answers();
    void judge_log();
    void add_conversation_figures();
    void add_fault_figures();

    soak_report& report_;
    soak_record record_; ///< Before the journal, which tells it what is said.
    peers::journal journal_;
    peers::installation lab_;
    soak_daemon daemon_;
    soak_log log_;
    soak_watch watch_;
    soak_commands commands_;
    server_faults server_faults_;
    peer_faults peer_faults_;
    bot_faults bot_faults_;
    bool watching_ = false; ///< Not while it starts: what it takes is not level then.
    bool alive_ = true;
};

peers::journal& soak::observed() {
    journal_.on_message([this](const peers::message& what) { record_.see(what); });
    return journal_;
}

void soak::run(std::chrono::duration<double> lasts) {
    const auto attached = [this] { return lab_.server().attaches() > 0; };
    if (!go_on_until(attached, longest_start)) {
        report_.violation("the daemon stays alive", "it does not attach");
        return;
    }
    watching_ = true;
    report_.say("the daemon has attached: load and faults begin");
    const auto calm = std::chrono::duration_cast<soak_clock::duration>(lasts / 6);
    play_faults(std::chrono::duration_cast<soak_clock::duration>(lasts) - calm);
    play_calm(calm);
    if (alive_) {
        end_daemon();
    }
    report_.checked("the daemon stays alive", "until it is told to end");
    judge_answers();
    judge_log();
    watch_.judge();
    add_conversation_figures();
    add_fault_figures();
}

/// Keeps the load up and the daemon watched until it is done. False at the bound.
bool soak::go_on_until(const std::function<bool()>& done, soak_clock::duration bound) {
    const soak_clock::time_point end = soak_clock::now() + bound;
    while (!done()) {
        if (!alive_ || soak_clock::now() >= end) {
            return false;
        }
        feed();
        log_.read();
        if (watching_) {
            watch_.step(daemon_, lab_.server().posts());
        }
        if (const auto ending = daemon_.wait(turn)) {
            alive_ = false;
            report_.violation("the daemon stays alive", "it ended with wait status " +
                                                            std::to_string(ending->status) + ": " +
                                                            daemon_.errors());
        }
    }
    return true;
}

void soak::feed() {
    while (lab_.server().queued() < queue_depth) {
        soak_command command = commands_.draw();
        const std::string text = command.text;
        record_.plan(std::move(command));
        lab_.server().queue(text);
    }
}

void soak::play_faults(soak_clock::duration lasts) {
    const soak_clock::time_point end = soak_clock::now() + lasts;
    const auto is_over = [&] {
        const soak_clock::time_point now = soak_clock::now();
        server_faults_.step(now);
        peer_faults_.step(now);
        bot_faults_.step(now);
        return now >= end;
    };
    static_cast<void>(go_on_until(is_over, lasts + turn * 20));
    report_.say("all peers are well from here on");
    peer_faults_.heal();
    server_faults_.heal();
    const auto is_back = [this] {
        server_faults_.step(soak_clock::now());
        return server_faults_.calm();
    };
    report_.violation_unless(go_on_until(is_back, server_faults::longest_return),
                             "the daemon comes back", "not after the last fault");
}

/// Nothing of the faults must stay behind: neither slowness nor, by and by, memory.
void soak::play_calm(soak_clock::duration lasts) {
    const std::size_t before = record_.count().replies;
    const soak_clock::time_point end = soak_clock::now() + lasts;
    static_cast<void>(go_on_until([end] { return soak_clock::now() >= end; }, lasts + turn * 20));
    const auto replies = static_cast<double>(record_.count().replies - before);
    const auto rate = replies / std::chrono::duration<double>(lasts).count();
    report_.figure("replies a second when all peers are well",
                   std::to_string(static_cast<long>(rate)));
    report_.violation_unless(rate >= least_rate, "the daemon comes back", "but slow");
}

/// Under load and, if one can be had, with a scan on its way.
void soak::end_daemon() {
    const bool scans = go_on_until([this] { return log_.scanning(); }, std::chrono::seconds(10));
    report_.say(std::string("SIGTERM, ") + (scans ? "in the midst of a scan" : "without a scan"));
    const soak_clock::time_point begin = soak_clock::now();
    daemon_.terminate();
    const auto ending = daemon_.wait(longest_end);
    judge_end(ending, soak_clock::now() - begin);
    log_.read();
}

void soak::judge_end(const std::optional<soak_daemon::ending>& ending, soak_clock::duration took) {
    const char* const check = "SIGTERM ends the daemon well";
    const bool is_good = ending && WIFEXITED(ending->status) && WEXITSTATUS(ending->status) == 0;
    const std::string last_words = "Closing monitor client\nExiting csi_receiver\n";
    const std::string output = daemon_.output();
    const bool says_so =
        output.size() >= last_words.size() &&
        output.compare(output.size() - last_words.size(), last_words.size(), last_words) == 0;
    report_.violation_unless(is_good, check, "no status 0 within " + in_seconds(longest_end));
    report_.violation_unless(says_so, check, "its last words are missing");
    report_.violation_unless(lab_.core(0).interfaces().empty() && lab_.core(1).interfaces().empty(),
                             check, "an interface was not given back");
    report_.violation_unless(!record_.owes_reply(), "no command is lost",
                             "the last one before the end");
    report_.checked(check, "after " + in_seconds(took) + ", bound " + in_seconds(longest_end));
    report_.figure("time to end after SIGTERM", in_seconds(took));
    if (ending) {
        report_.figure("CPU time of the daemon",
                       std::to_string(static_cast<long>(ending->cpu_seconds * 1000)) + " ms");
        report_.figure("peak of resident memory", std::to_string(ending->peak_kib) + " KiB");
    }
}

void soak::judge_answers() {
    const soak_record::counts seen = record_.count();
    const std::string excused =
        std::to_string(seen.excused) + " of " + std::to_string(seen.handed_out) +
        " were in a fault of the server, of which " + std::to_string(seen.lost) + " got no reply";
    report_.checked("no command is lost", excused);
    report_.checked("no command is answered twice", std::to_string(seen.replies) + " replies");
    report_.checked("every reply is right", std::to_string(seen.replies) + " replies");
    report_.checked("every message is right",
                    std::to_string(seen.attaches + seen.status_messages + seen.scan_reports) +
                        " attaches, status messages and scan reports");
    const char* const in_time = "every answer comes in time";
    report_.violation_unless(seen.longest_answer <= longest_answer, in_time, seen.longest_kind);
    report_.checked(in_time, "the longest took " + in_seconds(seen.longest_answer) + " (" +
                                 seen.longest_kind + "), bound " + in_seconds(longest_answer));
    const auto kinds = record_.replies_by_kind();
    const char* const all_kinds = "the load is no idle one";
    report_.violation_unless(kinds.size() > soak_commands::kinds_with_reply &&
                                 seen.scan_reports > 0 && seen.excused * 2 < seen.handed_out,
                             all_kinds, std::to_string(kinds.size()) + " kinds of commands");
    report_.checked(all_kinds, std::to_string(kinds.size()) + " kinds of commands were answered");
}

void soak::judge_log() {
    const soak_log::counts& seen = log_.count();
    const char* const one_line = "an outage gives one line in the log";
    report_.violation_unless(seen.failures == server_faults_.log_lines(), one_line,
                             std::to_string(seen.failures) + " lines in all, " +
                                 std::to_string(server_faults_.log_lines()) + " in faults");
    report_.checked(one_line, std::to_string(seen.failures) + " lines, " +
                                  std::to_string(server_faults_.sessions_lost()) +
                                  " sessions lost by faults");
    report_.checked("what is no outage keeps the session", "slow answers, error statuses");
    report_.checked("the daemon comes back", "the longest took " +
                                                 in_seconds(server_faults_.longest()) + ", bound " +
                                                 in_seconds(server_faults::longest_return));
    report_.checked("the log is read without gaps", std::to_string(seen.bytes) + " bytes");
    report_.checked("the log stays small",
                    "largest file " + std::to_string(seen.largest) + " bytes, bound " +
                        std::to_string(soak_log::largest_file) + ", never a fifth file");
    report_.figure("log written", std::to_string(seen.bytes / 1024) + " KiB, " +
                                      std::to_string(seen.lines) + " lines");
    report_.figure("log rotations", std::to_string(seen.rotations));
    report_.figure("longest scan with a report", in_seconds(seen.longest_scan));
}

void soak::add_conversation_figures() {
    const soak_record::counts seen = record_.count();
    report_.figure("commands handed out", std::to_string(seen.handed_out));
    report_.figure("replies", std::to_string(seen.replies));
    for (const auto& [kind, count] : record_.replies_by_kind()) {
        report_.figure("  to " + kind, std::to_string(count));
    }
    report_.figure("engine errors in faults of engines", std::to_string(seen.engine_errors));
    report_.figure("longest time to answer a command",
                   in_seconds(seen.longest_answer) + " (" + seen.longest_kind + ")");
    report_.figure("attaches", std::to_string(seen.attaches));
    report_.figure("commands \"disconnect\"", std::to_string(seen.disconnects));
    report_.figure("scan reports, status messages",
                   std::to_string(seen.scan_reports) + ", " + std::to_string(seen.status_messages));
    report_.figure("POSTs, GETs", std::to_string(lab_.server().posts()) + ", " +
                                      std::to_string(lab_.server().gets()));
}

void soak::add_fault_figures() {
    std::size_t all = 0;
    for (const auto* counts : {&server_faults_.counts(), &peer_faults_.counts()}) {
        for (const auto& [name, count] : *counts) {
            report_.figure("  " + name, std::to_string(count));
            all += count;
        }
    }
    report_.figure("faults in all", std::to_string(all));
    report_.figure("Bots that came or went", std::to_string(bot_faults_.changes()));
    report_.figure("longest return after a fault", in_seconds(server_faults_.longest()));
}

} // namespace

void run_soak(const soak_options& options, soak_report& report) {
    soak(options, report).run(std::chrono::duration<double, std::ratio<60>>(options.minutes));
}

} // namespace csi_soak
