#include "client/scanner.h"

#include <new>
#include <unordered_set>

#include "core/bot_commands.h"
#include "daemon/log.h"

namespace csi_receiver {
namespace {

constexpr int checks_per_scan = 10;

} // namespace

scanner::scanner(client_state& state, routing_table& routing, rest_session& session,
                 const zorvin_identity& identity, int period_ms)
    : state_(state)
    , routing_(routing)
    , session_(session)
    , identity_(identity)
    , timer_(
          period_ms, [this] { return check_or_retry(); }, 0) {}

scanner::~scanner() {
    finish();
}

void scanner::finish() {
    timer_.finish();
}

void scanner::start() {
    if (in_progress_) {
        return;
    }
    for (const zorvin_entry& zorvin : routing_.zorvins()) {
        if (state_.shutting_down()) {
            return;
        }
        static_cast<void>(core_active_bots(zorvin.address)); // the answer is not used
    }
    for (bot_record& bot : routing_.bots()) {
        if (state_.shutting_down()) {
            return;
        }
        bot.found = false;
        if (!bot.sounding) {
            core_sounding(bot.zorvin, bot, state_.core_rate(), quiet_);
        }
        if (!quiet_) {
            log_prefix() << "adding " << bot.hwaddr;
        }
    }
    countdown_ = checks_per_scan;
    report_sent_ = false;
    in_progress_ = true;
    {
        const std::lock_guard<std::mutex> lock(lists_mutex_);
        found_.clear();
    }
    timer_.start(0);
}

/// Memory that is refused must not end the process from a timer's thread: the next check resumes.
bool scanner::check_or_retry() {
    try {
        return check();
    } catch (const std::bad_alloc&) {
        return true;
    }
}

bool scanner::check() {
    // An expiry from before may come late: without a scan there is nothing to check.
    if (!in_progress_) {
        return false;
    }
    for (const zorvin_entry& zorvin : routing_.zorvins()) {
        look_for_bots(zorvin);
    }
    if (state_.shutting_down()) {
        return false; // the scan is never reported
    }
    if (!is_over()) {
        return true;
    }
    end_scan();
    return false;
}

void scanner::look_for_bots(const zorvin_entry& zorvin) {
    if (state_.shutting_down()) {
        return;
    }
    const std::vector<std::string> active = core_active_bots(zorvin.address);
    const std::unordered_set<std::string> seen(active.begin(), active.end());
    for (bot_record* const bot : zorvin.bots) {
        if (bot->found || seen.count(bot->uuid) == 0) {
            continue;
        }
        if (!quiet_) {
            log_prefix() << "Station " << bot->hwaddr << " uuid " << bot->uuid << " is a Bot";
        }
        {
            const std::lock_guard<std::mutex> lock(lists_mutex_);
            found_.push_back(bot->uuid);
        }
        // Not before: if memory is refused until here, the next check finds the Bot again.
        bot->found = true;
        stop_temporary_sounding(*bot);
    }
}

bool scanner::is_over() {
    if (countdown_ == 0) {
        return true;
    }
    --countdown_;
    const std::lock_guard<std::mutex> lock(lists_mutex_);
    return countdown_ == 0 || found_.size() >= routing_.bots().size();
}

void scanner::end_scan() {
    if (!quiet_ && !report_sent_) {
        send_report();
        log_prefix() << "Scan complete";
    }
    for (bot_record& bot : routing_.bots()) {
        if (!bot.found) {
            stop_temporary_sounding(bot);
        }
    }
    {
        const std::lock_guard<std::mutex> lock(lists_mutex_);
        if (found_.size() != reported_.size()) {
            state_.status_update = true;
        }
    }
    quiet_ = false;
    // Last of all: from here on the main thread may start the next scan.
    in_progress_ = false;
}

void scanner::send_report() {
    std::vector<std::string> found;
    {
        const std::lock_guard<std::mutex> lock(lists_mutex_);
        found = found_;
    }
    const std::string report = build_scan_report(identity_, found);
    report_sent_ = true; // already: if memory is refused after it was sent, it is not sent again
    session_.send(report);
}

/// Ends the sounding of a Bot that only the scan needed. The server may start the Bot for an
/// engine, or stop it again, while the request is under way, and then the later wish counts.
void scanner::stop_temporary_sounding(bot_record& bot) {
    if (bot.sounding || state_.shutting_down()) {
        return;
    }
    core_sounding(bot.zorvin, bot, 0, quiet_);
    bool requested = false; // what the core service was asked for last
    while (bot.sounding != requested && !state_.shutting_down()) {
        requested = !requested;
        core_sounding(bot.zorvin, bot, requested ? state_.core_rate() : 0, false);
    }
}

bot_list scanner::take_found() {
    const std::lock_guard<std::mutex> lock(lists_mutex_);
    const std::unordered_set<std::string> found(found_.begin(), found_.end());
    reported_.clear();
    bot_list taken;
    for (const bot_record& bot : routing_.bots()) {
        if (found.count(bot.uuid) != 0) {
            taken.push_back(&bot);
            reported_.push_back(bot.uuid);
        }
    }
    return taken;
}

void scanner::forget_reported() {
    const std::lock_guard<std::mutex> lock(lists_mutex_);
    reported_.clear();
}

} // namespace csi_receiver
