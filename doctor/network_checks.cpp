#include "doctor/network_checks.h"

#include <optional>
#include <string>

#include "client/routing.h"
#include "doctor/addresses.h"
#include "doctor/core_checks.h"
#include "doctor/fusion_checks.h"
#include "doctor/host_name_checks.h"
#include "doctor/routing_checks.h"
#include "doctor/server_checks.h"

namespace csi_doctor {
namespace {

std::string value_or(const settings& config, const char* key, const char* fallback) {
    const auto found = config.find(key);
    return found == config.end() ? fallback : found->second.value;
}

void check_core_services(const std::string& routing, report& findings) {
    csi_receiver::routing_table table;
    read_routing(routing, table);
    for (const csi_receiver::zorvin_entry& zorvin : table.zorvins()) {
        // Others were reported with their items in the routing.
        if (!find_core_address_fault(zorvin.address)) {
            check_core_service(zorvin, &zorvin == &table.zorvins().back(), findings);
        }
    }
}

void check_server(const settings& config, report& findings) {
    const std::string server = value_or(config, "server", "");
    const std::optional<finding> fault = check_host_name(server);
    if (!fault || fault->severity != level::fail) { // failures were reported with the value
        check_server_port(server, value_or(config, "http_port", "8090"), findings);
    }
}

} // namespace

void check_network(const settings& config, report& findings) {
    check_core_services(value_or(config, "routing", ""), findings);
    if (value_or(config, "fusion", "no") == "yes") {
        check_fusion_daemon(findings);
    }
    check_server(config, findings);
}

} // namespace csi_doctor
