#include "doctor/core_checks.h"

#include <chrono>
#include <optional>
#include <string_view>

#include "core/core_request.h"
#include "core/interface_commands.h"
#include "core/requests.h"
#include "platform/json.h"
#include "platform/udp_client.h"

namespace csi_doctor {
namespace {

using std::chrono::microseconds;

constexpr csi_receiver::attempt_timeouts timeouts_ms = {csi_receiver::core_request_timeout_ms,
                                                        csi_receiver::core_request_timeout_ms};
constexpr microseconds first_timeout = std::chrono::milliseconds(timeouts_ms[0]);

constexpr const char* passes_it_over =
    "passes it over; if it stays so until the daemon starts, and no other interface is in mode ap, "
    "the server is told an empty driver and SSID, and 0 chains";

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

std::string no_object(const std::string& reply) {
    return reply.size() == csi_receiver::udp_client::receive_buffer_size
               ? "does not fit the 4096 bytes that the daemon reads"
               : "is no JSON object: " + quoted(reply.substr(0, 60));
}

std::string no_object_remedy(const std::string& reply) {
    return reply.size() == csi_receiver::udp_client::receive_buffer_size
               ? "the core service must answer in less than 4096 bytes"
               : "check that it is a core service which listens on UDP port 14310";
}

/// True when there is a reply; the finding otherwise says why not.
bool has_reply(const timed_reply& reply, const std::string& where, const std::string& effect,
               report& to) {
    if (!reply.text) {
        to.fail(
            where,
            "the system knows no way to this address; the daemon gives no line in its log about "
            "it; " +
                effect,
            "check the address in the routing, and this machine's network (ip route)");
    } else if (reply.text->empty() && reply.took < first_timeout) {
        to.fail(where, "nothing listens on UDP port 14310; " + effect,
                "start the core service there, or correct the address in the routing");
    } else if (reply.text->empty()) {
        to.fail(where, "no answer to two requests within 4 s; " + effect,
                "check that the machine is on and the core service runs, the address in the "
                "routing, and that no firewall stops UDP port 14310");
    }
    return reply.text && !reply.text->empty();
}

bool check_ping(const std::string& address, bool is_last, const std::string& where, report& to) {
    const std::string effect = is_last ? "the daemon waits for it without limit before it attaches"
                                       : "the daemon starts without it, and finds none of its Bots";
    const timed_reply reply = ask_core(address, R"({"ping":null})");
    if (!has_reply(reply, where, effect, to)) {
        return false;
    }
    const json::document answer = json::parse(*reply.text);
    if (!answer.IsObject()) {
        to.fail(where, "its answer to a ping " + no_object(*reply.text) + "; " + effect,
                no_object_remedy(*reply.text));
        return false;
    }
    if (json::find(answer, "ping") == nullptr) {
        to.fail(where,
                "its answer to a ping has no member \"ping\": " +
                    quoted(reply.text->substr(0, 60)) + "; " + effect,
                "the core service must answer {\"ping\":\"pong\"}: update it");
        return false;
    }
    if (reply.took >= first_timeout) {
        to.warn(where, "answered a ping only after " + in_ms(reply.took) + ", when asked again",
                "look for lost datagrams or a busy core service");
    } else {
        to.ok(where, "answers a ping in " + in_ms(reply.took));
    }
    return true;
}

std::string* text_field(csi_receiver::interface_info& info, std::string_view name) {
    return name == "iftype"        ? &info.iftype
           : name == "bssid"       ? &info.bssid
           : name == "ssid"        ? &info.ssid
           : name == "driver_name" ? &info.driver_name
                                   : nullptr;
}

/// False, with a finding, when a member that the daemon reads has another type than it must have.
bool read_member(const std::string_view name, const json::value& member,
                 csi_receiver::interface_info& info, const std::string& where, report& to) {
    std::string* text = text_field(info, name);
    const bool is_number = name == "wiphy" || name == "antennas";
    if ((text != nullptr && !member.IsString()) || (is_number && !member.IsInt())) {
        to.fail(where,
                "says " + quoted(name) + ":" + printable(json::write(member).substr(0, 60)) +
                    ", which ends the daemon with status 134",
                std::string("the core service must send ") +
                    (is_number ? "an integer of 32 bits" : "a string") + " there: update it");
        return false;
    }
    if (text != nullptr) {
        text->assign(member.GetString(), member.GetStringLength());
    } else if (name == "antennas") {
        info.antennas = member.GetInt();
    }
    return true;
}

void judge(const csi_receiver::interface_info& info, const std::string& where, report& to) {
    const std::string facts = "driver " + quoted(info.driver_name) + ", " +
                              std::to_string(info.antennas) + " antennas, SSID " +
                              quoted(info.ssid);
    if (info.iftype.empty()) {
        to.warn(where,
                std::string("the core service tells no mode of it, so the daemon ") +
                    passes_it_over,
                "check the interface's name in the routing, and that the radio is up; a core "
                "service that knows it only when the daemon has started is in order");
    } else if (info.iftype != "ap") {
        to.fail(where,
                "is in mode " + quoted(info.iftype) +
                    " instead of \"ap\": the daemon ends with \"wrong wlan mode\"",
                "route an interface of an access point, or make this one an access point");
    } else if (info.driver_name.empty() || info.ssid.empty() || info.antennas <= 0) {
        to.warn(where, "mode ap, but the facts for the server are not complete: " + facts,
                "check that the access point is up there");
    } else {
        to.ok(where, "mode ap, " + facts);
    }
}

std::string info_request(const std::string& ifname) {
    json::document request = csi_receiver::make_request("info");
    json::set(request, "ifname", ifname, request.GetAllocator());
    return json::write(request);
}

} // namespace

void check_info_reply(const std::string& reply, const std::string& where, report& to) {
    const json::document answer = json::parse(reply);
    if (!answer.IsObject()) {
        to.fail(where, "the answer about it " + no_object(reply) + "; the daemon " + passes_it_over,
                no_object_remedy(reply));
        return;
    }
    csi_receiver::interface_info info;
    bool readable = true;
    for (const auto& member : answer.GetObject()) {
        const std::string_view name(member.name.GetString(), member.name.GetStringLength());
        readable = read_member(name, member.value, info, where, to) && readable;
    }
    if (readable) {
        judge(info, where, to);
    }
}

void check_core_service(const csi_receiver::zorvin_entry& zorvin, bool is_last, report& to) {
    const std::string where = "core service " + zorvin.address;
    if (!check_ping(zorvin.address, is_last, where, to)) {
        return;
    }
    for (const std::string& ifname : zorvin.interfaces) {
        const std::string at = where + ", " + printable(ifname);
        const timed_reply reply = ask_core(zorvin.address, info_request(ifname));
        if (has_reply(reply, at, std::string("the daemon ") + passes_it_over, to)) {
            check_info_reply(*reply.text, at, to);
        }
    }
}

} // namespace csi_doctor
