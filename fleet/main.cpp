// The program csi_fleet: plays one REST server and many core services for scripts/fleet, which
// controls it with lines of input.
#include <exception>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "fleet/fleet_peers.h"

int main(int argc, char** argv) {
    CLI::App app("Plays one REST server and many core services for scripts/fleet.", "csi_fleet");
    csi_fleet::fleet_options options;
    app.add_option("--count", options.daemons, "Number of core services")
        ->check(CLI::Range(1, 5000));
    app.add_option("--http-port", options.port, "Port of the REST server");
    app.add_option("--attaches", options.attach_file, "File for the times of attaches, in ms");
    app.add_option("--intervals", options.poll_intervals,
                   "Shortest and longest poll interval that the server sets, in ms");
    CLI11_PARSE(app, argc, argv);
    try {
        csi_fleet::fleet_peers peers(options);
        std::cout << "ready" << std::endl;
        for (std::string line; std::getline(std::cin, line);) {
            std::cout << peers.execute(line) << std::endl;
        }
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "csi_fleet: " << failure.what() << '\n';
        return 1;
    }
}
