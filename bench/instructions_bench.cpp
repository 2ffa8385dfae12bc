// How many user-space instructions a command and an idle second take, in the daemon and in the bare
// program, counted by valgrind: unlike times, the counts hardly differ from run to run. Exit status
// 1 if the daemon has become dearer.
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/installation.h"
#include "bench/measured_process.h"
#include "bench/table.h"

namespace {

/// Each count is that of a long run less that of a short one, so that the start and the end of the
/// program do not count.
constexpr std::size_t few = 20;
constexpr std::size_t many = 220;

// The quotients when they were measured last. Who raises one says why in the commit message.
constexpr double command_quotient = 1.077;
constexpr double idle_quotient = 1.053; // 1.044 to 1.060, depending on the processor and its load
constexpr double tolerance = 1.02;

/// Runs the program under valgrind, lets it serve commands or else poll in vain, and returns its
/// instructions.
double count_instructions(csi_bench::installation& place, bool daemon, std::size_t commands,
                          std::size_t polls) {
    csi_bench::measured_process process(place.journal());
    const std::string output = place.path("instructions");
    std::vector<std::string> arguments{CSI_BENCH_VALGRIND, "--tool=callgrind", "--quiet",
                                       "--callgrind-out-file=" + output};
    const std::vector<std::string> program =
        daemon ? place.daemon_command(process.port(), "true")
               : csi_bench::installation::bare_command(process.port(), "turns", place.path("bare"));
    arguments.insert(arguments.end(), program.begin(), program.end());
    process.start(std::move(arguments), daemon ? 3 : 2);
    process.serve(commands);
    process.wait_for_polls(polls);
    process.stop();
    std::ifstream profile(output);
    for (std::string word; profile >> word;) {
        if (double total = 0; word == "totals:" && profile >> total) {
            return total;
        }
    }
    throw std::runtime_error("valgrind has written no totals");
}

double per_command(csi_bench::installation& place, bool daemon) {
    return (count_instructions(place, daemon, many, 0) -
            count_instructions(place, daemon, few, 0)) /
           (many - few);
}

/// An idle second has ten polls.
double per_idle_second(csi_bench::installation& place, bool daemon) {
    return (count_instructions(place, daemon, 1, many) -
            count_instructions(place, daemon, 1, few)) /
           (many - few) * 10;
}

bool compare(const char* what, double (*count)(csi_bench::installation&, bool), double quotient) {
    csi_bench::installation place;
    return csi_bench::print_row(what, "", {count(place, true)}, {count(place, false)},
                                {quotient * tolerance, 0});
}

} // namespace

int main() {
    try {
        csi_bench::print_header("Instructions: the floor is a bare program with the same requests");
        const bool command = compare("instructions per command", per_command, command_quotient);
        const bool idle = compare("instructions per idle second", per_idle_second, idle_quotient);
        return command && idle ? 0 : 1;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "csi_bench_instructions: %s\n", failure.what());
        return 1;
    }
}
