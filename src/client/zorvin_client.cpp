#include "client/zorvin_client.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <optional>
#include <thread>
#include <utility>

#include "core/interface_commands.h"
#include "daemon/log.h"
#include "daemon/signals.h"
#include "platform/utilities.h"

namespace csi_receiver {
namespace {

constexpr std::uint32_t default_http_port = 8090;
constexpr std::chrono::milliseconds ping_pause{100};
constexpr int sleep_slice_ms = 100;

std::string value_of(configuration& settings, const std::string& key) {
    return has_key(settings, key) ? get(settings, key) : "";
}

std::uint32_t http_port(configuration& settings) {
    if (!has_key(settings, "http_port")) {
        return default_http_port;
    }
    const std::uint64_t port = parse_decimal(get(settings, "http_port"));
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(port, UINT32_MAX));
}

/// For the destructor, which must not throw: what needs memory that is refused is left out.
void try_despite_no_memory(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::bad_alloc&) {
        return;
    }
}

} // namespace

pacing::time monotonic_now() {
    return std::chrono::steady_clock::now().time_since_epoch();
}

zorvin_client::zorvin_client(int signal_descriptor, configuration& settings, int scan_period_ms,
                             clock_function now)
    : settings_(settings)
    , signal_descriptor_(signal_descriptor)
    , now_(std::move(now))
    , fusion_(value_of(settings, "fusion") == "yes")
    , session_(value_of(settings, "server"), http_port(settings), state_)
    , scanner_(state_, routing_, session_, identity_, scan_period_ms)
    , engine_commands_(state_, routing_)
    , dispatcher_(state_, pacing_, routing_, engine_commands_, scanner_, settings) {}

zorvin_client::~zorvin_client() {
    state_.stop = true; // a scan in progress sends nothing new
    try_despite_no_memory([] { log_prefix() << "Stopping the Zorvin client"; });
    scanner_.finish();
    for (const zorvin_entry& zorvin : routing_.zorvins()) {
        for (const std::string& ifname : zorvin.interfaces) {
            try_despite_no_memory([&] { core_del_interface(zorvin.address, ifname); });
        }
    }
}

void zorvin_client::run() {
    // Gives the streams back whichever way this function is left.
    std::optional<log_redirection> log;
    // "true" here, "yes" in the entry point: kept for compatibility.
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
    log_path = value_of(settings_, "log_path");
    if (log_path.empty()) {
        log_path = "/var/run";
    } else if (log_path.back() == '/') {
        log_path.pop_back();
    }
    log_file = get(settings_, "execname") + ".log";
}

bool zorvin_client::start_up() {
    print("ZW device module version: " + get(settings_, "version") + "\n");
    if (!read_identity() || !read_routing() || !wait_for_core_services()) {
        return false;
    }
    for (const zorvin_entry& zorvin : routing_.zorvins()) {
        add_interfaces(zorvin, [this] { return state_.shutting_down(); });
        if (!check_interfaces(zorvin)) {
            return false;
        }
    }
    if (!choose_api()) {
        return false;
    }
    save_csi();
    return true;
}

bool zorvin_client::read_identity() {
    identity_.uuid = get(settings_, "zorvin_uuid");
    if (identity_.uuid.empty()) {
        log_prefix() << "invalid zorvin_uuid";
        return false;
    }
    hex_id_to_decimal(identity_.uuid);
    return true;
}

bool zorvin_client::read_routing() {
    const std::string& routing = get(settings_, "routing");
    routing_.add_routing(routing);
    if (routing_.zorvins().empty()) {
        log_prefix() << "error parsing \"routing=" << routing << "\" configuration parameter";
        return false;
    }
    return true;
}

bool zorvin_client::wait_for_core_services() {
    while (true) {
        bool last_answers = false; // the last Zorvin decides for all: kept for compatibility
        for (const zorvin_entry& zorvin : routing_.zorvins()) {
            last_answers = !state_.shutting_down() && core_ping(zorvin.address);
        }
        if (read_signal(signal_descriptor_)) {
            log_prefix() << "Error connecting to core service";
            return false;
        }
        if (last_answers) {
            return true;
        }
        // Each failed ping logs a line, up to ten per second, and the wait may last for days.
        if (log_ != nullptr) {
            log_->rotate_if_grown();
        }
        std::this_thread::sleep_for(ping_pause);
    }
}

bool zorvin_client::check_interfaces(const zorvin_entry& zorvin) {
    bool is_first = true; // per entry: the last entry that has an access point decides
    for (const std::string& ifname : zorvin.interfaces) {
        if (state_.shutting_down()) {
            return true; // the main loop reads the signal and ends
        }
        const interface_info info = core_interface_info(zorvin.address, ifname);
        if (info.iftype.empty()) {
            continue;
        }
        if (info.iftype != "ap") {
            log_prefix() << "Error: wrong wlan mode: " << info.iftype << " for interface " << ifname
                         << " on zorvin " << zorvin.address;
            return false;
        }
        if (is_first) {
            sensing_ = {info.driver_name, info.ssid, info.antennas};
            is_first = false;
        }
    }
    return true;
}

bool zorvin_client::choose_api() {
    if (!has_key(settings_, "api")) {
        settings_["api"] = "v2";
    }
    const std::string& api = get(settings_, "api");
    if (api != "v2" && api != "v3") {
        log_prefix() << "API version unsupported";
        return false;
    }
    identity_.is_v3 = api == "v3";
    session_.set_urls(api, identity_.uuid);
    return true;
}

void zorvin_client::save_csi() {
    if (!has_key(settings_, "csi_file")) {
        return;
    }
    const std::string& filename = get(settings_, "csi_file");
    for (const zorvin_entry& zorvin : routing_.zorvins()) {
        if (state_.shutting_down()) {
            return;
        }
        if (core_save_csi(zorvin.address, filename)) {
            log_prefix() << "Saving CSI to " << filename << " on zorvind " << zorvin.address;
        } else {
            log_prefix() << "Save CSI error for zorvin at " << zorvin.address;
        }
    }
}

void zorvin_client::main_loop() {
    poll_set polls;
    poll_set_add(polls, signal_descriptor_, poll_readable);
    bool attached = false;
    while (!state_.stop) {
        const pacing::time now = now_();
        attached = attach_or_poll(attached, now);
        if (attached) {
            serve_requests(now);
        }
        wait_for_signals(polls, pacing_.wait_ms(attached));
        rotate_log_if_grown();
    }
}

bool zorvin_client::attach_or_poll(bool attached, pacing::time now) {
    if (!attached) {
        return connect();
    }
    return !pacing_.poll_due(now) || poll(session_.message_url());
}

/// One request per turn. The flag falls first: what raises it meanwhile must not be lost.
void zorvin_client::serve_requests(pacing::time now) {
    if (pacing_.tick_due(now)) {
        state_.scan_request = true;
        scanner_.be_quiet();
    }
    if (state_.status_update.exchange(false)) {
        send_status();
    } else if (state_.scan_request.exchange(false)) {
        scanner_.start();
    }
}

void zorvin_client::wait_for_signals(poll_set& polls, int wait_ms) {
    for (const poll_event& event : poll_set_wait(polls, wait_ms)) {
        const bool failed = event.fd < 0;
        if ((failed && sleep_until_signal(wait_ms)) ||
            (event.fd == signal_descriptor_ && read_signal(signal_descriptor_))) {
            state_.stop = true;
            return;
        }
    }
}

/// The wait when poll(2) fails, for want of memory. True on a signal that terminates the daemon.
bool zorvin_client::sleep_until_signal(int wait_ms) const {
    for (int left_ms = wait_ms; !read_signal(signal_descriptor_); left_ms -= sleep_slice_ms) {
        if (left_ms <= 0) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(std::min(left_ms, sleep_slice_ms)));
    }
    return true;
}

void zorvin_client::rotate_log_if_grown() {
    if (log_ != nullptr && log_->rotate_if_grown()) {
        static_cast<void>(build_attach()); // for its effect on the reported list
    }
}

bool zorvin_client::connect() {
    return session_.connect(build_attach(), [this](const std::string& text, std::string& reply) {
        return parse_msg(text, reply);
    });
}

bool zorvin_client::poll(const std::string& url) {
    const auto handle = [this](const std::string& text, std::string& reply) {
        return parse_msg(text, reply);
    };
    // A server that always has a command keeps the client in here.
    return session_.poll(url, handle, [this] { rotate_log_if_grown(); });
}

void zorvin_client::send_status() {
    send(build_status(identity_, scanner_.take_found()));
}

std::string zorvin_client::build_attach() {
    return csi_receiver::build_attach(identity_, sensing_, scanner_.take_found(),
                                      get(settings_, "version"), fusion_);
}

bool zorvin_client::parse_msg(const std::string& text, std::string& reply) {
    return dispatcher_.parse_msg(text, reply);
}

} // namespace csi_receiver
