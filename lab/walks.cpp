// The scripts of "csi_lab --against": two Zorvins, Bots 101 and 103 at the first, 102 at the
// second.
#include <algorithm>
#include <array>
#include <string>

#include "lab/against.h"

namespace csi_lab {
namespace {

/// Start-up and the first scan.
constexpr const char* beginning = R"(
say --- The daemon starts
expect / attach +\{/ within 30s
say --- Its first scan
expect active_bots within 10s
)";

constexpr const char* commands = R"(
# A scan takes up to ten seconds, and another one cannot begin before.
wait 12
say --- The sounding of a Bot starts, twice, and stops
{"cmd":"rate","rate":25}
expect {"cmd":"rate","rate":25,"success":true} within 15s
{"cmd":"start","bot":101}
expect {"cmd":"start","bot":101,"ifname":"wlan0" within 15s
{"cmd":"start","bot":101}
expect {"cmd":"start","bot":101,"ifname":"wlan0" within 15s
{"cmd":"stop","bot":101}
expect {"cmd":"stop","bot":101,"ifname":"wlan0","success":true} within 15s
say --- A Bot goes, and a scan looks for it
absent 102
{"cmd":"scan"}
expect "found":[ within 20s
say --- It comes back
present 102
{"cmd":"scan"}
expect "found":[ within 20s
)";

constexpr const char* interfaces_end = R"(
say --- The daemon ends
stop daemon
expect the daemon ended with status 0
)";

/// Each command for one Bot, for two, and again. What the answer contains is the engine's affair.
std::string engine_commands(const std::string& type) {
    std::string result = "say --- Engine " + type + "\n";
    const std::string engine = R"(,"engineType":")" + type + "\"}\n";
    const std::string reply = "expect / daemon +-> server +reply +\\{/ within 30s\n";
    for (const char* const command : {"start", "start", "state", "stop", "stop"}) {
        const std::string begin = std::string(R"({"cmd":")") + command;
        for (const char* const bots : {R"(","bot":101)", R"(","bots":[101,103])"}) {
            result.append(begin).append(bots).append(engine).append(reply);
        }
    }
    return result;
}

/// The daemon repeats a request when the answer takes too long.
std::string slow_command(const std::string& type, const std::string& peer,
                         const std::string& delay) {
    const std::string command = R"({"cmd":"state","bot":101,"engineType":")" + type + "\"}\n";
    return "say --- The answer comes late: the daemon repeats its request\ndelay " + delay + " " +
           peer + "\n" + command + "expect / request +\\{\"cmd\":\"state\"/ within 15s\n" +
           "expect / request +\\{\"cmd\":\"state\"/ within 15s\n" +
           "expect / daemon +-> server +reply +\\{/ within 30s\ndelay 0 " + peer + "\n";
}

} // namespace

std::string walk_for(std::string_view peer, unsigned seconds) {
    if (peer == "core") {
        return std::string(beginning) + commands + engine_commands("motion2") +
               engine_commands("breathing2") + engine_commands("guard") +
               slow_command("guard", "core:127.0.0.101", "2300") + interfaces_end;
    }
    if (peer == "fusion") {
        return std::string(beginning) + engine_commands("cpd") + engine_commands("softSecurity") +
               slow_command("cpd", "fusion", "5300") + interfaces_end;
    }
    const std::string half = std::to_string(seconds / 2.0);
    return std::string("say --- The daemon starts\nexpect / attach +\\{/ within 30s\n"
                       "expect Connected to REST server within ") +
           std::to_string(std::min(seconds, 8U)) +
           "s\n"
           "say --- The server is watched\nexpect / status +\\{/ within 60s\nwait " +
           half + "\nsay --- A Bot goes\nabsent 102\nwait " + half + "\n" + interfaces_end;
}

} // namespace csi_lab
