// The station scan: which Bots are there. Started by the main loop, carried on by the scan timer.
#include <unordered_set>

#include "client/identifiers.h"
#include "client/zorvin_client.h"
#include "core/bot_commands.h"
#include "daemon/log.h"
#include "daemon/signals.h"
#include "platform/utilities.h"

namespace csi_receiver {
namespace {

constexpr int checks_of_a_scan = 10;

} // namespace

bool zorvin_client::is_ending() const {
    return stop_ || termination_pending();
}

void zorvin_client::scan_start() {
    if (scan_in_progress_) {
        return;
    }
    for (const zorvin_entry& zorvin : routing_.zorvins()) {
        if (is_ending()) {
            return;
        }
        // The answer counts for nothing; the question makes the core service look around.
        static_cast<void>(core_active_bots(zorvin.address));
    }
    for (bot_record& bot : routing_.bots()) {
        if (is_ending()) {
            return;
        }
        bot.found = false;
        if (!bot.sounding) {
            core_sounding(bot.zorvin, bot, static_cast<std::uint32_t>(sounding_rate_), quiet_);
        }
        if (!quiet_) {
            log_prefix() << "adding " << bot.hwaddr;
        }
    }
    scan_countdown_ = checks_of_a_scan;
    scan_in_progress_ = true;
    {
        const std::lock_guard<std::mutex> lock(lists_mutex_);
        scan_list_.clear();
    }
    scan_timer_.start(0);
}

bool zorvin_client::scan_check() {
    // An expiry from before may come late: without a scan there is nothing to check.
    if (!scan_in_progress_) {
        return false;
    }
    for (const zorvin_entry& zorvin : routing_.zorvins()) {
        look_for_bots(zorvin);
    }
    if (is_ending()) {
        return false; // the scan is never reported
    }
    if (scan_countdown_ != 0) {
        --scan_countdown_;
        if (scan_countdown_ != 0 && scan_list_size() < routing_.bots().size()) {
            return true;
        }
    }
    end_scan();
    return false;
}

void zorvin_client::look_for_bots(const zorvin_entry& zorvin) {
    if (is_ending()) {
        return;
    }
    const std::vector<std::string> active = core_active_bots(zorvin.address);
    const std::unordered_set<std::string> seen(active.begin(), active.end());
    for (bot_record* const bot : zorvin.bots) {
        if (bot->found || seen.count(bot->uuid) == 0) {
            continue;
        }
        bot->found = true;
        if (!quiet_) {
            log_prefix() << "Station " << bot->hwaddr << " uuid " << bot->uuid << " is a Bot";
        }
        stop_temporary_sounding(*bot);
        const std::lock_guard<std::mutex> lock(lists_mutex_);
        scan_list_.push_back(bot->uuid);
    }
}

void zorvin_client::end_scan() {
    if (!quiet_) {
        send(build_scan_report());
        log_prefix() << "Scan complete";
    }
    for (bot_record& bot : routing_.bots()) {
        if (!bot.found) {
            stop_temporary_sounding(bot);
        }
    }
    {
        const std::lock_guard<std::mutex> lock(lists_mutex_);
        if (scan_list_.size() != reported_list_.size()) {
            status_update_ = true;
        }
    }
    quiet_ = false;
    // Last of all: from here on the main thread may start the next scan.
    scan_in_progress_ = false;
}

/// Ends the sounding of a Bot that only the scan needed. The server may start the Bot for an
/// engine, or stop it again, while the request is under way, and then the later wish counts.
void zorvin_client::stop_temporary_sounding(bot_record& bot) {
    if (bot.sounding || is_ending()) {
        return;
    }
    core_sounding(bot.zorvin, bot, 0, quiet_);
    for (bool told = false; bot.sounding != told && !is_ending();) {
        told = !told;
        const std::int32_t rate = told ? sounding_rate_.load() : 0;
        core_sounding(bot.zorvin, bot, static_cast<std::uint32_t>(rate), false);
    }
}

std::size_t zorvin_client::scan_list_size() {
    const std::lock_guard<std::mutex> lock(lists_mutex_);
    return scan_list_.size();
}

std::string zorvin_client::build_scan_report() {
    json::document report(rapidjson::kObjectType);
    json::allocator& memory = report.GetAllocator();
    json::set(report, "cmd", "scan", memory);
    json::set(report, "zorvin", uuid_, memory);
    if (is_v3_) {
        json::set(report, "request", "zorvinMsg", memory);
    } else {
        json::set(report, "uuid", uuid_, memory);
    }
    json::set(report, "success", json::value(true), memory);
    json::set(report, "reason", "complete", memory);
    json::value found(rapidjson::kArrayType);
    {
        const std::lock_guard<std::mutex> lock(lists_mutex_);
        for (const std::string& uuid : scan_list_) {
            // Numbers from the start: the writing pass knows no identifiers under this name.
            found.PushBack(json::value(parse_decimal(uuid)), memory);
        }
    }
    json::set(report, "found", std::move(found), memory);
    identifiers_to_numbers(report);
    return json::write(report);
}

} // namespace csi_receiver
