#include "doctor/sample_checks.h"

#include "doctor/identity.h"
#include "doctor/text.h"

namespace csi_doctor {

bool is_for_lab(const settings& config) {
    const auto server = config.find("server");
    return server != config.end() &&
           (server->second.value == "localhost" || server->second.value == "[::1]" ||
            server->second.value.compare(0, 4, "127.") == 0);
}

bool is_sample_hwaddr(const std::string& hwaddr) {
    return hwaddr == "020000000065" || hwaddr == "020000000066";
}

void check_sample_identity(const settings& config, report& findings) {
    const auto uuid = config.find("zorvin_uuid");
    if (uuid != config.end() && parse_identity(uuid->second.value).text == "9001" &&
        !is_for_lab(config)) {
        findings.warn("zorvin_uuid_of_sample"_code, at_line(uuid->second.line, "zorvin_uuid"),
                      in_quotes(uuid->second.value) +
                          " is the identity in the sample configuration",
                      "write the identity that the REST server has for this access point");
    }
}

} // namespace csi_doctor
