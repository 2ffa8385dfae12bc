#include "faults/conversation.h"

#include <algorithm>
#include <functional>
#include <numeric>

#include "faults/transcript.h"
#include "peers/installation.h"
#include "peers/journal.h"

namespace csi_faults {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using clock = std::chrono::steady_clock;

constexpr milliseconds slice{20};         // between two looks whether the daemon still runs
constexpr seconds resend_after{3};        // a command without a reply
constexpr seconds step_timeout{40};       // more than the time-outs of a command add up to
constexpr seconds lasting_fault_for{4};   // how long the daemon runs with it at least
constexpr seconds end_timeout{45};        // after SIGTERM, with a POST and a reply under way
constexpr seconds noticed_within{2};      // the server's outage
constexpr unsigned filling_commands = 30; // more than 2 MiB of log

/// The daemon writes 1e20 in full, so that the reply is five times as long as the command.
std::string filling() {
    std::string numbers = "1e20";
    for (int count = 1; count < 3000; ++count) {
        numbers += ",1e20";
    }
    return R"("cmd":"version","filling":[)" + numbers + "]";
}

peers::installation_options options() {
    peers::installation_options result;
    result.bots = 2;
    result.http_port = 0;
    result.fusion = true;
    result.times = {milliseconds(200), seconds(3)};
    return result;
}

std::string csi_saving() {
    return "csi_file=/dev/null\n";
}

class conversation {
public:
    conversation(const daemon_files& files, const std::optional<fault_case>& fault,
                 std::size_t quiet_descriptors)
        : lasting_(fault && fault->from_then_on)
        , quiet_descriptors_(quiet_descriptors)
        , daemon_(files, installation_.configuration() + csi_saving(), fault) {}

    observation hold() {
        talk();
        const double talked = elapsed();
        const std::uint32_t calls = daemon_.calls();
        end();
        seen_.fired = daemon_.fault_fired();
        seen_.output = daemon_.output();
        seen_.calls_per_second = calls / talked;
        seen_.seconds = elapsed();
        count_replies();
        return seen_;
    }

private:
    using predicate = transcript::predicate;

    void talk() {
        const bool all = attach(1) && command(R"("cmd":"poll_interval","interval":20)") &&
                         command(R"("cmd":"start","bot":101,"engineType":"motion2")") &&
                         command(R"("cmd":"start","bot":101,"engineType":"cpd")") && fill_log() &&
                         scan() && lose_session() && await_report() &&
                         command(R"("cmd":"stop","bot":101,"engineType":"motion2")") &&
                         command(R"("cmd":"version")");
        if (all && !lasting_) {
            come_to_rest();
        }
        const bool more_time = lasting_ && !seen_.ended_by_itself;
        while (more_time && begin_ + lasting_fault_for > clock::now() && !has_ended()) {
            static_cast<void>(daemon_.wait(slice));
        }
    }

    /// False when the daemon has ended, or the time is up.
    bool await(const char* what, const predicate& holds, milliseconds timeout) {
        const clock::time_point end = clock::now() + timeout;
        while (!transcript_.wait_for(holds, slice)) {
            if (has_ended()) {
                return false;
            }
            const clock::time_point latest = lasting_ ? begin_ + lasting_fault_for : end;
            if (clock::now() > std::min(end, latest)) {
                seen_.waited_for = what;
                return false;
            }
        }
        return true;
    }

    bool has_ended() {
        seen_.ended_by_itself = daemon_.wait(milliseconds(0)).has_value();
        return seen_.ended_by_itself;
    }

    /// Repeats what may have been lost.
    bool await_repeating(const char* what, const predicate& holds,
                         const std::function<void()>& repeat) {
        for (const clock::time_point end = clock::now() + step_timeout; clock::now() < end;) {
            repeat();
            if (await(what, holds, resend_after)) {
                seen_.waited_for.clear();
                return true;
            }
            if (seen_.ended_by_itself || lasting_) {
                return false;
            }
        }
        return false;
    }

    bool attach(unsigned number) {
        return await(
            "an attach", [number](const auto& counts) { return counts.attaches >= number; },
            step_timeout);
    }

    bool command(const std::string& members) {
        const unsigned first = next_number_;
        return await_repeating(
            "the reply to a command",
            [first](const auto& counts) {
                return counts.replies.lower_bound(first) != counts.replies.end();
            },
            [&] { queue(members); });
    }

    void queue(const std::string& members) {
        installation_.server().queue(R"({"n":)" + std::to_string(next_number_++) + "," + members +
                                     "}");
    }

    bool fill_log() {
        for (unsigned count = 1; count < filling_commands; ++count) {
            queue(filling());
        }
        return command(filling()); // the last one
    }

    /// The first scan of all is a quiet one and ends with a status message.
    bool scan() {
        const auto over = [](const auto& counts) {
            return counts.status_messages > 0 || counts.scan_reports > 0;
        };
        if (!await("the end of the first scan", over, resend_after) && seen_.ended_by_itself) {
            return false;
        }
        seen_.waited_for.clear(); // a fault may have cost it
        installation_.server().queue(R"({"cmd":"scan"})");
        return true;
    }

    bool await_report() {
        return await_repeating(
            "a scan report", [](const auto& counts) { return counts.scan_reports > 0; },
            [this] {
                if (std::exchange(ask_again_, true)) {
                    installation_.server().queue(R"({"cmd":"scan"})");
                }
            });
    }

    bool lose_session() {
        const unsigned attaches = transcript_.count().attaches;
        const std::size_t outages = logged_outages();
        installation_.server().stop();
        const clock::time_point end = clock::now() + noticed_within;
        while (logged_outages() == outages && clock::now() < end && !has_ended()) {
            static_cast<void>(daemon_.wait(slice));
        }
        installation_.server().start();
        return attach(attaches + 1);
    }

    [[nodiscard]] std::size_t logged_outages() const {
        const std::string log = daemon_.log();
        const std::string line = "] request to";
        std::size_t count = 0;
        for (std::size_t at = log.find(line); at != std::string::npos;
             at = log.find(line, at + 1)) {
            ++count;
        }
        return count;
    }

    /// Between two requests the daemon has no descriptors but the lasting ones.
    void come_to_rest() {
        const clock::time_point end = clock::now() + seconds(2);
        seen_.descriptors = daemon_.descriptors();
        do {
            seen_.descriptors = std::min(seen_.descriptors, daemon_.descriptors());
        } while (seen_.descriptors > quiet_descriptors_ && clock::now() < end &&
                 !daemon_.wait(milliseconds(1)));
    }

    void end() {
        seen_.ended_by_itself = has_ended();
        if (!seen_.ended_by_itself) {
            daemon_.terminate();
        }
        const auto ending = daemon_.wait(end_timeout);
        seen_.deaf = !ending.has_value();
        seen_.status = ending.value_or(faulty_daemon::ending{}).status;
        seen_.cpu_seconds = ending.value_or(faulty_daemon::ending{}).cpu_seconds;
    }

    void count_replies() {
        const transcript::counts counts = transcript_.count();
        for (const auto& [number, times] : counts.handed_out) {
            const auto reply = counts.replies.find(number);
            const unsigned replies = reply == counts.replies.end() ? 0 : reply->second;
            seen_.lost += replies == 0 ? 1 : 0;
            seen_.doubled += replies > 1 ? replies - 1 : 0;
        }
    }

    [[nodiscard]] double elapsed() const {
        return std::chrono::duration<double>(clock::now() - begin_).count();
    }

    const clock::time_point begin_ = clock::now();
    const bool lasting_;
    const std::size_t quiet_descriptors_;
    bool ask_again_ = false;
    unsigned next_number_ = 1;
    observation seen_;
    peers::journal journal_;
    transcript transcript_{journal_};
    peers::installation installation_{journal_, options()};
    faulty_daemon daemon_;
};

} // namespace

observation converse(const daemon_files& files, const std::optional<fault_case>& fault,
                     std::size_t quiet_descriptors) {
    return conversation(files, fault, quiet_descriptors).hold();
}

} // namespace csi_faults
