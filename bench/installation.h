/// What the measured programs need: a core service, and a folder for configurations and logs.
#pragma once

#include <string>
#include <vector>

#include "peers/core_service.h"
#include "peers/journal.h"

namespace csi_bench {

/// Removes its folder in the end. For one thread.
class installation {
public:
    ~installation();
    installation() = default;
    installation(const installation&) = delete;
    installation& operator=(const installation&) = delete;

    [[nodiscard]] peers::journal& journal() { return journal_; }
    [[nodiscard]] std::string path(const std::string& name) const {
        return directory_ + "/" + name;
    }

    /// The daemon's command line, for a server at that port. `log` is the value of "log".
    [[nodiscard]] std::vector<std::string> daemon_command(const std::string& port,
                                                          const std::string& log) const;
    /// The bare program's. `rhythm` is "turns" or "sleep".
    [[nodiscard]] static std::vector<std::string>
    bare_command(const std::string& port, const std::string& rhythm, const std::string& log_file);

private:
    const std::string directory_ = make_directory();
    peers::journal journal_;
    peers::core_service core_{journal_, "127.0.0.1", core_options()};

    static std::string make_directory();
    static peers::core_service_options core_options();
};

} // namespace csi_bench
