#include "soak/results.h"

#include <chrono>
#include <cstddef>
#include <string>

#include "soak/commands.h"

namespace csi_soak {
namespace {

constexpr std::chrono::seconds max_answer_time{30};

void check_load(const conversation_checker& conversation, reporter& report) {
    const char* const check = "the load covers everything";
    const conversation_checker::counters counts = conversation.counts();
    const std::size_t kinds = conversation.replies_by_kind().size();
    const std::string seen = std::to_string(kinds) + " kinds of commands were answered";
    report.expect(kinds > command_generator::kinds_with_reply && counts.scan_reports > 0, check,
                  seen);
    report.expect(counts.excused * 2 < counts.commands, check, "too many losses are excused");
    report.add_check(check, seen);
}

void check_recovery(const server_faults& faults, reporter& report) {
    report.add_check("only an outage ends the session", "after slow answers and error statuses");
    report.add_check("redirects lead to HTTP only", "from hostile servers");
    report.add_check("the daemon comes back", "after " + in_seconds(faults.longest_recovery()) +
                                                  " at most, limit " +
                                                  in_seconds(server_faults::max_recovery));
}

} // namespace

void check_conversation(const conversation_checker& conversation, reporter& report) {
    const conversation_checker::counters counts = conversation.counts();
    const std::string replies = std::to_string(counts.replies) + " replies";
    report.add_check(
        "no command is lost",
        std::to_string(counts.excused) + " of " + std::to_string(counts.commands) +
            " may have been lost in a fault of the server; lost: " + std::to_string(counts.lost));
    report.add_check("no command is answered twice", replies);
    report.add_check("every reply is correct", replies);
    report.add_check(
        "every message is correct",
        std::to_string(counts.attaches + counts.status_messages + counts.scan_reports) +
            " attaches, status messages and scan reports");
    const char* const in_time = "every reply comes in time";
    const std::string longest =
        in_seconds(counts.longest_answer) + " at most (" + counts.slowest_kind + ")";
    report.expect(counts.longest_answer <= max_answer_time, in_time, longest);
    report.add_check(in_time, longest + ", limit " + in_seconds(max_answer_time));
    check_load(conversation, report);
}

void check_log(const log_reader& log, const server_faults& faults, reporter& report) {
    const log_reader::counters& counts = log.counts();
    const char* const one_line = "an outage is logged once";
    const std::string lines = std::to_string(counts.failed_requests) + " lines";
    report.expect(counts.failed_requests == faults.log_lines(), one_line,
                  lines + ", but " + std::to_string(faults.log_lines()) + " in faults");
    report.add_check(one_line,
                     lines + ", " + std::to_string(faults.sessions_lost()) + " sessions lost");
    check_recovery(faults, report);
    report.add_check("the log is read without gaps", std::to_string(counts.bytes) + " bytes");
    report.add_check("the log stays small",
                     "largest file " + std::to_string(counts.largest_file) + " bytes, limit " +
                         std::to_string(log_reader::max_file_bytes) + "; never a fifth file");
    report.add_figure("log written", std::to_string(counts.bytes / 1024) + " KiB, " +
                                         std::to_string(counts.lines) + " lines");
    report.add_figure("log rotations", std::to_string(counts.rotations));
    report.add_figure("longest scan with a report", in_seconds(counts.longest_scan));
}

void add_conversation_figures(const conversation_checker& conversation,
                              const peers::rest_server& server, reporter& report) {
    const conversation_checker::counters counts = conversation.counts();
    report.add_figure("commands handed out", std::to_string(counts.commands));
    report.add_figure("replies", std::to_string(counts.replies));
    for (const auto& [kind, count] : conversation.replies_by_kind()) {
        report.add_figure("  to " + kind, std::to_string(count));
    }
    report.add_figure("engine errors while the peer failed", std::to_string(counts.engine_errors));
    report.add_figure("longest time to answer a command",
                      in_seconds(counts.longest_answer) + " (" + counts.slowest_kind + ")");
    report.add_figure("attaches", std::to_string(counts.attaches));
    report.add_figure("commands \"disconnect\"", std::to_string(counts.disconnects));
    report.add_figure("scan reports, status messages", std::to_string(counts.scan_reports) + ", " +
                                                           std::to_string(counts.status_messages));
    report.add_figure("POSTs, GETs",
                      std::to_string(server.posts()) + ", " + std::to_string(server.gets()));
}

void add_fault_figures(const server_faults& server, const peer_faults& peers,
                       const bot_absences& bots, const stranger& visitor, reporter& report) {
    std::size_t total = 0;
    for (const auto* counts : {&server.counts(), &peers.counts()}) {
        for (const auto& [name, count] : *counts) {
            report.add_figure("  " + name, std::to_string(count));
            total += count;
        }
    }
    report.add_figure("faults in all", std::to_string(total));
    report.add_figure("times that a Bot went or came back", std::to_string(bots.changes()));
    report.add_figure("answers of hostile servers", std::to_string(server.hostile_answers()));
    report.add_figure("visits of a stranger, forged replies",
                      std::to_string(visitor.visits()) + ", " +
                          std::to_string(visitor.datagrams()));
    report.add_figure("longest return after a fault", in_seconds(server.longest_recovery()));
}

} // namespace csi_soak
