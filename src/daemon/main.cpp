// The entry point: from the command line to a running client and back.
#include <algorithm>
#include <exception>
#include <new>
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

using csi_receiver::print; // needs no memory, of which there may be none

/// The last part of a path; both kinds of slash separate parts.
std::string base_name(const std::string& path) {
    return path.substr(path.find_last_of("/\\") + 1);
}

void run_client(int signal_descriptor, configuration& settings) {
    try {
        csi_receiver::zorvin_client client(signal_descriptor, settings);
        client.run();
    } catch (const std::exception& failure) {
        print({"EXCEPTION: ", failure.what(), "\nError starting monitor\n"});
    }
}

bool lacks_key(const configuration& settings, const std::string& key, const std::string& hint,
               const std::string& path) {
    const bool lacks = !csi_receiver::has_key(settings, key);
    if (lacks) {
        print({"Set \"", hint, "\" in ", path, "\n"});
    }
    return lacks;
}

/// Runs the client until it ends; the exit status.
int serve(const std::string& program, configuration& settings) {
    csi_receiver::descriptor signals(csi_receiver::create_signal_descriptor());
    if (!signals.is_open()) {
        print("Error initializing signal handling\n");
        return 1;
    }
    if (csi_receiver::is_preemptive_kernel()) {
        print("Running with a preemptive kernel\n");
    }
    run_client(signals.get(), settings);
    print("Closing monitor client\n");
    signals.reset();
    print({"Exiting ", program, "\n"});
    return 0;
}

int run_daemon(const std::vector<std::string>& arguments) {
    const std::string program = base_name(arguments.empty() ? "" : arguments[0]);
    if (arguments.size() < 2) {
        print({program, " conf_file\n"});
        return 1;
    }
    const std::string& path = arguments[1];
    configuration settings = csi_receiver::read_configuration(path, '=');
    if (settings.empty()) {
        print({"config empty or file ", path, " could not be opened\n"});
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
    return serve(program, settings);
}

} // namespace

int main(int argc, char* argv[]) {
    csi_receiver::fill_standard_descriptors();
    try {
        return run_daemon(std::vector<std::string>(argv, argv + argc));
    } catch (const std::bad_alloc&) { // before there is a client
        print("EXCEPTION: out of memory\n");
        return 1;
    }
}
