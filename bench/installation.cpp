#include "bench/installation.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace csi_bench {

installation::~installation() {
    std::filesystem::remove_all(directory_);
}

std::vector<std::string> installation::daemon_command(const std::string& port,
                                                      const std::string& log) const {
    std::string configuration = path("conf_" + port);
    std::ofstream(configuration) << "zorvin_uuid=9001\nserver=127.0.0.1\nhttp_port=" << port
                                 << "\nlog=" << log << "\nlog_path=" << directory_
                                 << "\nrouting=101:127.0.0.1:wlan0:0A0000000101\n";
    return {CSI_RECEIVER_BINARY, configuration};
}

std::vector<std::string> installation::bare_command(const std::string& port,
                                                    const std::string& rhythm,
                                                    const std::string& log_file) {
    return {CSI_BENCH_BARE_BINARY, port, rhythm, log_file};
}

std::string installation::make_directory() {
    std::string pattern = std::filesystem::temp_directory_path() / "csi_bench_XXXXXX";
    return mkdtemp(pattern.data());
}

peers::core_service_options installation::core_options() {
    peers::core_service_options result;
    result.times.appear_after = std::chrono::milliseconds(100); // a scan ends at its first check
    return result;
}

} // namespace csi_bench
