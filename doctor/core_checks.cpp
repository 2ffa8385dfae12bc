#include "doctor/core_checks.h"

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "core/core_request.h"
#include "core/requests.h"
#include "doctor/addresses.h"
#include "doctor/core_replies.h"
#include "doctor/text.h"
#include "platform/json.h"

namespace csi_doctor {
namespace {

using std::chrono::microseconds;

constexpr csi_receiver::attempt_timeouts timeouts_ms = {csi_receiver::core_request_timeout_ms,
                                                        csi_receiver::core_request_timeout_ms};
constexpr microseconds first_timeout = std::chrono::milliseconds(timeouts_ms[0]);

struct timed_reply {
    std::optional<std::string> text;
    microseconds took;
};

timed_reply ask_core(const std::string& address, const std::string& request) {
    const auto start = std::chrono::steady_clock::now();
    auto text = csi_receiver::ask(address, csi_receiver::core_service_port, request, timeouts_ms);
    const auto took = std::chrono::steady_clock::now() - start;
    return {std::move(text), std::chrono::duration_cast<microseconds>(took)};
}

std::string in_ms(microseconds time) {
    const auto tenths = (time.count() + 50) / 100;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " ms";
}

std::string udp_port() {
    return "UDP port " + std::to_string(csi_receiver::core_service_port);
}

/// True when there is a reply; otherwise reports why not.
bool check_answered(const timed_reply& reply, const std::string& where, const std::string& effect,
                    report& findings) {
    if (!reply.text) {
        findings.fail("core_no_route"_code, where,
                      "no route to this address (the daemon logs nothing about it); " + effect,
                      "check the address in \"routing\", and this machine's network (ip route)");
    } else if (reply.text->empty() && reply.took < first_timeout) {
        findings.fail("core_not_listening"_code, where,
                      "nothing listens on " + udp_port() + "; " + effect,
                      "start the core service there, or correct the address in \"routing\"");
    } else if (reply.text->empty()) {
        findings.fail("core_silent"_code, where, "no answer to two requests within 4 s; " + effect,
                      "check that the machine is on and its core service runs, that the address in "
                      "\"routing\" is right, and that no firewall blocks " +
                          udp_port());
    }
    return reply.text && !reply.text->empty();
}

bool check_ping(const std::string& address, bool is_last, const std::string& where,
                report& findings) {
    const std::string effect = is_last ? "the daemon waits for it indefinitely before it attaches"
                                       : "the daemon starts without it, and finds none of its Bots";
    const timed_reply reply = ask_core(address, R"({"ping":null})");
    if (!check_answered(reply, where, effect, findings) ||
        !check_ping_reply(*reply.text, where, effect, findings)) {
        return false;
    }
    if (reply.took >= first_timeout) {
        findings.warn("core_slow"_code, where,
                      "answered only when pinged again, after " + in_ms(reply.took),
                      "look for lost datagrams or a busy core service");
    } else {
        findings.ok("core_answers"_code, where, "answers a ping in " + in_ms(reply.took));
    }
    return true;
}

std::string info_request(const std::string& ifname) {
    json::document request = csi_receiver::make_request("info");
    json::set(request, "ifname", ifname, request.GetAllocator());
    return json::write(request);
}

} // namespace

void check_core_service(const csi_receiver::zorvin_entry& zorvin, bool is_last, report& findings) {
    const std::string where = "core service " + zorvin.address;
    if (is_local_broadcast(zorvin.address)) {
        findings.fail(
            "core_broadcast"_code, where,
            "is the broadcast address of a network of this machine: the daemon cannot send "
            "to it, and logs nothing about it",
            "write the core service's own address into \"routing\"");
        return;
    }
    if (!check_ping(zorvin.address, is_last, where, findings)) {
        return;
    }
    for (const std::string& ifname : zorvin.interfaces) {
        const std::string at = where + ", " + printable(ifname);
        const timed_reply reply = ask_core(zorvin.address, info_request(ifname));
        if (check_answered(reply, at, skips_interface, findings)) {
            check_info_reply(*reply.text, at, findings);
        }
    }
    const timed_reply bots = ask_core(zorvin.address, R"({"cmd":"active_bots"})");
    if (check_answered(bots, where, "the daemon will find none of its Bots", findings)) {
        check_active_bots_reply(*bots.text, where, findings);
    }
}

} // namespace csi_doctor
