// The entry point: from the command line to a running client and back.
#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "client/zorvin_client.h"
#include "daemon/configuration.h"
#include "daemon/log.h"
#include "daemon/process.h"
#include "daemon/signals.h"
#include "daemon/version.h"
#include "platform/descriptor.h"

namespace {

using csi_receiver::configuration;

void say(const std::string& line) {
    csi_receiver::print(line + "\n");
}

/// The last part of a path; both kinds of slash separate parts.
std::string base_name(const std::string& path) {
    return path.substr(path.find_last_of("/\\") + 1);
}

void run_client(int signal_descriptor, configuration& settings) {
    try {
        csi_receiver::zorvin_client client(signal_descriptor, settings);
        client.run();
    } catch (const std::exception& failure) {
        say(std::string("EXCEPTION: ") + failure.what());
        say("Error starting monitor");
    }
}

bool lacks_key(const configuration& settings, const std::string& key, const std::string& hint,
               const std::string& path) {
    const bool lacks = !csi_receiver::has_key(settings, key);
    if (lacks) {
        say("Set \"" + hint + "\" in " + path);
    }
    return lacks;
}

int run_daemon(const std::vector<std::string>& arguments) {
    const std::string program = base_name(arguments.empty() ? "" : arguments[0]);
    if (arguments.size() < 2) {
        say(program + " conf_file");
        return 1;
    }
    const std::string& path = arguments[1];
    configuration settings = csi_receiver::read_configuration(path, '=');
    if (settings.empty()) {
        say("config empty or file " + path + " could not be opened");
        return 1;
    }
    if (lacks_key(settings, "zorvin_uuid", "zorvin_uuid=<uuid>", path)) {
        return 1;
    }
    // "yes" here, "true" in the client: kept for compatibility.
    const bool log_to_file =
        !csi_receiver::has_key(settings, "log") || csi_receiver::get(settings, "log") == "yes";
    if (std::find(arguments.begin(), arguments.end(), "-D") != arguments.end()) {
        csi_receiver::daemonise(!log_to_file);
    }
    // The hint shows three fields, the parser takes four: kept for compatibility.
    if (lacks_key(settings, "routing", "routing=botID1:ifname1:hwaddr1,botID2:ifname2:hwaddr2",
                  path) ||
        lacks_key(settings, "server", "server=<ip>", path)) {
        return 1;
    }
    settings["version"] = csi_receiver::version();
    settings["file"] = path;
    settings["execname"] = program;
    csi_receiver::descriptor signals(csi_receiver::create_signal_descriptor());
    if (!signals.is_open()) {
        say("Error initializing signal handling");
        return 1;
    }
    if (csi_receiver::is_preemptive_kernel()) {
        say("Running with a preemptive kernel");
    }
    run_client(signals.get(), settings);
    say("Closing monitor client");
    signals.reset();
    say("Exiting " + program);
    return 0;
}

} // namespace

int main(int argc, char* argv[]) {
    csi_receiver::fill_standard_descriptors();
    return run_daemon(std::vector<std::string>(argv, argv + argc));
}
