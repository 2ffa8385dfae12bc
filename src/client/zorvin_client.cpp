#include "client/zorvin_client.h"

#include <algorithm>
#include <climits>
#include <ctime>
#include <optional>
#include <thread>

#include "core/interface_commands.h"
#include "daemon/log.h"
#include "daemon/signals.h"
#include "platform/utilities.h"

namespace csi_receiver {
namespace {

constexpr std::uint32_t default_http_port = 8090;
constexpr std::chrono::milliseconds ping_pause{100};
constexpr std::chrono::seconds tick_period{30};

std::chrono::nanoseconds monotonic_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

std::uint32_t parse_port(const std::string& text) {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(parse_decimal(text), UINT32_MAX));
}

} // namespace

zorvin_client::zorvin_client(int signal_descriptor, configuration& settings, int scan_period_ms)
    : http_(default_http_port)
    , settings_(settings)
    , scan_timer_(
          scan_period_ms, [this] { return scan_check(); }, 0)
    , server_(has_key(settings, "server") ? get(settings, "server") : "")
    , signal_descriptor_(signal_descriptor)
    , fusion_(has_key(settings, "fusion") && get(settings, "fusion") == "yes") {
    if (has_key(settings_, "http_port")) {
        http_.set_port(parse_port(get(settings_, "http_port")));
    }
    http_.set_ending_test([this] { return is_ending(); });
}

zorvin_client::~zorvin_client() {
    stop_ = true; // a scan in progress sends nothing new
    log_prefix() << "Stopping the Zorvin client";
    scan_timer_.finish();
    for (const zorvin_entry& zorvin : routing_.zorvins()) {
        for (const std::string& ifname : zorvin.interfaces) {
            core_del_interface(zorvin.address, ifname);
        }
    }
}

void zorvin_client::run() {
    // Gives the streams back whichever way this function is left.
    std::optional<log_redirection> log;
    // The client tests "log" for "true" where the entry point tests it for "yes": installations
    // depend on both.
    if (!has_key(settings_, "log") || get(settings_, "log") == "true") {
        choose_log();
        log_ = &log.emplace(log_path, log_file);
    }
    if (start_up()) {
        main_loop();
    }
    log_ = nullptr;
}

void zorvin_client::choose_log() {
    log_path = has_key(settings_, "log_path") ? get(settings_, "log_path") : "";
    if (log_path.empty()) {
        log_path = "/var/run";
    } else if (log_path.back() == '/') {
        log_path.pop_back();
    }
    log_file = get(settings_, "execname") + ".log";
}

bool zorvin_client::start_up() {
    print("ZW device module version: " + get(settings_, "version") + "\n");
    uuid_ = get(settings_, "zorvin_uuid");
    if (uuid_.empty()) {
        log_prefix() << "invalid zorvin_uuid";
        return false;
    }
    hex_id_to_decimal(uuid_);
    const std::string& routing = get(settings_, "routing");
    routing_.add_routing(routing);
    if (routing_.zorvins().empty()) {
        log_prefix() << "error parsing \"routing=" << routing << "\" configuration parameter";
        return false;
    }
    if (!wait_for_core_services()) {
        return false;
    }
    for (const zorvin_entry& zorvin : routing_.zorvins()) {
        add_interfaces(zorvin);
        if (!check_interfaces(zorvin)) {
            return false;
        }
    }
    if (!build_message_url()) {
        return false;
    }
    if (has_key(settings_, "csi_file")) {
        for (const zorvin_entry& zorvin : routing_.zorvins()) {
            save_csi(zorvin, get(settings_, "csi_file"));
        }
    }
    return true;
}

bool zorvin_client::wait_for_core_services() {
    while (true) {
        bool last_answers = false; // of the last Zorvin alone: it decides for all
        for (const zorvin_entry& zorvin : routing_.zorvins()) {
            last_answers = core_ping(zorvin.address);
        }
        if (read_signal(signal_descriptor_)) {
            log_prefix() << "Error connecting to core service";
            return false;
        }
        if (last_answers) {
            return true;
        }
        // A line for each failed ping, ten a second: the wait may last for days.
        if (log_ != nullptr) {
            log_->rotate_if_grown();
        }
        std::this_thread::sleep_for(ping_pause);
    }
}

bool zorvin_client::check_interfaces(const zorvin_entry& zorvin) {
    bool is_first = true; // per entry, so that the last entry with an access point decides
    for (const std::string& ifname : zorvin.interfaces) {
        const interface_info info = core_interface_info(zorvin.address, ifname);
        if (info.iftype.empty()) {
            continue; // no message: an interface that does not answer yet is no reason to speak
        }
        if (info.iftype != "ap") {
            log_prefix() << "Error: wrong wlan mode: " << info.iftype << " for interface " << ifname
                         << " on zorvin " << zorvin.address;
            return false;
        }
        if (is_first) {
            driver_name_ = info.driver_name;
            ssid_ = info.ssid;
            chains_ = info.antennas;
            is_first = false;
        }
    }
    return true;
}

void zorvin_client::save_csi(const zorvin_entry& zorvin, const std::string& filename) {
    if (core_save_csi(zorvin.address, filename)) {
        log_prefix() << "Saving CSI to " << filename << " on zorvind " << zorvin.address;
    } else {
        log_prefix() << "Save CSI error for zorvin at " << zorvin.address;
    }
}

void zorvin_client::main_loop() {
    poll_set polls;
    poll_set_add(polls, signal_descriptor_, poll_readable);
    loop_times times;
    bool attached = false;
    while (!stop_) {
        const std::chrono::nanoseconds now = monotonic_now();
        attached = attached ? serve_polls(times, now) : connect();
        if (attached) {
            serve_flags(times, now);
        }
        wait_for_signals(polls, attached ? poll_interval_ms_ / 5 : back_off_ms());
        keep_log_small();
    }
}

bool zorvin_client::serve_polls(loop_times& times, std::chrono::nanoseconds now) {
    if (now - times.last_poll <= std::chrono::milliseconds(poll_interval_ms_)) {
        return true;
    }
    times.last_poll = now;
    return poll(message_url_);
}

void zorvin_client::serve_flags(loop_times& times, std::chrono::nanoseconds now) {
    if (now - times.last_tick > tick_period) {
        times.last_tick = now;
        scan_request_ = true;
        quiet_ = true;
    }
    // One of the two a turn. The flag falls first: what raises it meanwhile must not be lost.
    if (status_update_.exchange(false)) {
        send_status();
    } else if (scan_request_.exchange(false)) {
        scan_start();
    }
}

int zorvin_client::back_off_ms() const {
    return static_cast<int>(std::min<std::int64_t>(std::int64_t{poll_interval_ms_} * 20, INT_MAX));
}

void zorvin_client::wait_for_signals(poll_set& polls, int wait_ms) {
    for (const poll_event& event : poll_set_wait(polls, wait_ms)) {
        if (event.fd == signal_descriptor_ && read_signal(signal_descriptor_)) {
            stop_ = true;
            return;
        }
    }
}

void zorvin_client::keep_log_small() {
    if (log_ != nullptr && log_->rotate_if_grown()) {
        // For its effect alone: it renews the list of the Bots that were reported.
        static_cast<void>(build_attach());
    }
}

} // namespace csi_receiver
