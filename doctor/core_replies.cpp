#include "doctor/core_replies.h"

#include <cstdint>
#include <string_view>

#include "core/core_request.h"
#include "doctor/text.h"
#include "platform/json.h"
#include "platform/udp_client.h"

namespace csi_doctor {
namespace {

/// For a reply that is not a JSON object, or was cut so that it no longer is one.
void explain_not_an_object(const std::string& reply, const std::string& name,
                           const std::string& where, const std::string& effect, report& findings) {
    if (reply.size() == csi_receiver::udp_client::receive_buffer_size) {
        const std::string size = std::to_string(reply.size());
        findings.fail("core_reply_too_long"_code, where,
                      name + " is longer than the " + size + " bytes that the daemon reads; " +
                          effect,
                      "update the core service: it must answer in less than " + size + " bytes");
        return;
    }
    findings.fail("core_reply_not_object"_code, where,
                  name + " is not a JSON object: " + in_quotes(reply.substr(0, 60)) + "; " + effect,
                  "check that a core service, and nothing else, listens on UDP port " +
                      std::to_string(csi_receiver::core_service_port));
}

/// What the daemon uses of a reply to "info".
struct interface_facts {
    std::string mode;
    std::string driver;
    std::string ssid;
    std::int32_t antennas = 0;
};

bool is_read_as_integer(std::string_view name) {
    return name == "wiphy" || name == "antennas";
}

bool is_read_as_text(std::string_view name) {
    return name == "iftype" || name == "bssid" || name == "ssid" || name == "driver_name";
}

/// `wanted`: what the daemon reads the member as.
void report_wrong_type(std::string_view name, const json::value& member, const char* wanted,
                       const std::string& where, report& findings) {
    findings.fail("core_reply_wrong_type"_code, where,
                  "the core service reports " + in_quotes(name) + ":" +
                      printable(json::write(member).substr(0, 60)) +
                      ", a wrong type that makes the daemon abort with status 134",
                  std::string("update the core service: it must send ") + wanted);
}

/// False, with a finding, when the daemon reads the member as another type.
bool check_type(std::string_view name, const json::value& member, const std::string& where,
                report& findings) {
    const bool wrong_integer = is_read_as_integer(name) && !member.IsInt();
    const bool wrong_text = is_read_as_text(name) && !member.IsString();
    if (wrong_integer || wrong_text) {
        report_wrong_type(name, member, wrong_integer ? "a 32-bit integer" : "a string", where,
                          findings);
    }
    return !wrong_integer && !wrong_text;
}

void check_active_bot(const json::value& bot, const std::string& where, report& findings) {
    if (!bot.IsObject()) {
        report_wrong_type("bots", bot, "an array of objects", where, findings);
        return;
    }
    const json::value* const uuid = json::find(bot, "uuid");
    const json::value* const count = json::find(bot, "count");
    if (uuid != nullptr && !uuid->IsString()) {
        report_wrong_type("uuid", *uuid, "a string", where, findings);
    }
    if (count != nullptr && !count->IsUint64()) {
        report_wrong_type("count", *count, "an unsigned integer", where, findings);
    }
}

void read_member(std::string_view name, const json::value& member, interface_facts& facts) {
    if (name == "iftype") {
        facts.mode = json::text_of(member);
    } else if (name == "driver_name") {
        facts.driver = json::text_of(member);
    } else if (name == "ssid") {
        facts.ssid = json::text_of(member);
    } else if (name == "antennas") {
        facts.antennas = member.GetInt();
    }
}

void check_facts(const interface_facts& facts, const std::string& where, report& findings) {
    const std::string details = "driver " + in_quotes(facts.driver) + ", antennas " +
                                std::to_string(facts.antennas) + ", SSID " + in_quotes(facts.ssid);
    if (facts.mode.empty()) {
        findings.warn("interface_mode_unknown"_code, where,
                      std::string("the core service does not report its mode; ") + skips_interface,
                      "check the interface's name in \"routing\", and that the radio is up; "
                      "nothing is wrong if the core service knows the interface only once the "
                      "daemon has added it");
    } else if (facts.mode != "ap") {
        findings.fail("interface_not_ap"_code, where,
                      "is in mode " + in_quotes(facts.mode) +
                          " instead of \"ap\": the daemon exits with \"wrong wlan mode\"",
                      "name an access point's interface in \"routing\", or make this one an access "
                      "point");
    } else if (facts.driver.empty() || facts.ssid.empty() || facts.antennas <= 0) {
        findings.warn("interface_incomplete"_code, where,
                      "mode ap, but the core service reports incomplete data: " + details,
                      "check that the access point is up");
    } else {
        findings.ok("interface_ok"_code, where, "mode ap, " + details);
    }
}

} // namespace

bool check_ping_reply(const std::string& reply, const std::string& where, const std::string& effect,
                      report& findings) {
    const json::document answer = json::parse(reply);
    if (!answer.IsObject()) {
        explain_not_an_object(reply, "its answer to a ping", where, effect, findings);
        return false;
    }
    if (json::find(answer, "ping") == nullptr) {
        findings.fail("core_ping_reply_incomplete"_code, where,
                      "its answer to a ping has no member \"ping\": " +
                          in_quotes(reply.substr(0, 60)) + "; " + effect,
                      "update the core service: it must answer {\"ping\":\"pong\"}");
        return false;
    }
    return true;
}

void check_info_reply(const std::string& reply, const std::string& where, report& findings) {
    const json::document answer = json::parse(reply);
    if (!answer.IsObject()) {
        explain_not_an_object(reply, "the answer to \"info\"", where, skips_interface, findings);
        return;
    }
    interface_facts facts;
    bool all_readable = true;
    for (const auto& member : answer.GetObject()) {
        const std::string_view name = json::text_of(member.name);
        if (check_type(name, member.value, where, findings)) {
            read_member(name, member.value, facts);
        } else {
            all_readable = false;
        }
    }
    if (all_readable) {
        check_facts(facts, where, findings);
    }
}

void check_active_bots_reply(const std::string& reply, const std::string& where, report& findings) {
    const json::document answer = json::parse(reply);
    if (!answer.IsObject()) {
        explain_not_an_object(reply, "the answer to \"active_bots\"", where,
                              "the daemon will find none of its Bots", findings);
        return;
    }
    const json::value* const bots = json::find(answer, "bots");
    if (bots != nullptr && !bots->IsArray()) {
        report_wrong_type("bots", *bots, "an array of objects", where, findings);
    } else if (bots != nullptr) {
        for (const json::value& bot : bots->GetArray()) {
            check_active_bot(bot, where, findings);
        }
    }
}

} // namespace csi_doctor
