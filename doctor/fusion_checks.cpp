#include "doctor/fusion_checks.h"

#include <fstream>
#include <sstream>
#include <string>

#include "client/fusion.h"
#include "doctor/udp_sockets.h"

namespace csi_doctor {

void check_fusion_daemon(report& findings) {
    constexpr const char* where = "fusion daemon";
    const std::string port = "UDP port " + std::to_string(csi_receiver::fusion_port);
    std::ifstream ipv4("/proc/net/udp");
    std::ifstream ipv6("/proc/net/udp6"); // missing when the kernel has no IPv6
    std::ostringstream list;
    list << ipv4.rdbuf();
    if (!ipv4) {
        findings.warn("fusion_daemon_unknown"_code, where,
                      "cannot tell whether anything listens on " + port +
                          ": /proc/net/udp is not readable",
                      "check that the fusion daemon runs");
        return;
    }
    list << ipv6.rdbuf();
    if (receives_from_loopback(list.str(), csi_receiver::fusion_port)) {
        findings.ok("fusion_daemon_listening"_code, where, "something listens on " + port);
        return;
    }
    findings.fail("fusion_daemon_not_listening"_code, where,
                  std::string("nothing listens at ") + csi_receiver::fusion_address + " on " +
                      port + ", so the engines offered to the server do not work",
                  "start the fusion daemon on this machine, or delete fusion=yes");
}

} // namespace csi_doctor
