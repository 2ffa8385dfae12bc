/// The program csi_faults: makes each call of the daemon fail once, and checks what becomes of it.
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

#include "faults/cases.h"
#include "faults/conversation.h"
#include "faults/daemon.h"
#include "faults/verdict.h"

namespace csi_faults {
namespace {

namespace fs = std::filesystem;

struct program_options {
    daemon_files files;
    std::string cases;
    std::string results;
    std::string one;
    long seconds = 0;
};

daemon_files files_in(const daemon_files& files, const std::string& name) {
    daemon_files result = files;
    result.folder += "/" + name;
    fs::remove_all(result.folder);
    fs::create_directories(result.folder);
    return result;
}

/// Without a fault. Throws std::runtime_error when the conversation fails.
observation usual_conversation(const daemon_files& files) {
    observation seen = converse(files, std::nullopt, 0);
    if (const auto wrong = judge_usual(seen)) {
        throw std::runtime_error("without a fault: " + *wrong);
    }
    return seen;
}

void list_cases(const daemon_files& files) {
    const daemon_files used = files_in(files, "usual");
    usual_conversation(used);
    for (const fault_case& one : cases_for(used.folder + "/record")) {
        std::cout << one.name() << '\n';
    }
}

verdict run_case(const daemon_files& files, const fault_case& fault, const observation& usual) {
    const daemon_files used = files_in(files, "case");
    verdict result = judge(fault, converse(used, fault, usual.descriptors), usual);
    if (result.name == "violation") {
        std::string kept = fault.name();
        std::replace(kept.begin(), kept.end(), '/', '.');
        fs::remove_all(files.folder + "/" + kept);
        fs::rename(used.folder, files.folder + "/" + kept);
    }
    return result;
}

/// Until the time is up.
void run_cases(const program_options& options) {
    const auto begin = std::chrono::steady_clock::now();
    const observation usual = usual_conversation(files_in(options.files, "usual"));
    std::ofstream results(options.results, std::ios::app);
    std::ifstream cases(options.cases);
    for (std::string name; std::getline(cases, name) && !interrupted();) {
        const auto elapsed = std::chrono::steady_clock::now() - begin;
        if (options.seconds > 0 && elapsed > std::chrono::seconds(options.seconds)) {
            return;
        }
        const verdict found = run_case(options.files, parse_case(name), usual);
        if (!interrupted()) {
            results << name << '\t' << found.name << '\t' << found.detail << std::endl;
        }
    }
}

int run_one(const program_options& options) {
    const observation usual = usual_conversation(files_in(options.files, "usual"));
    const fault_case fault = parse_case(options.one);
    const daemon_files used = files_in(options.files, "case");
    const verdict found = judge(fault, converse(used, fault, usual.descriptors), usual);
    std::cout << found.name << ": " << found.detail << "\nIts files: " << used.folder << '\n';
    return found.name == "violation" ? 1 : 0;
}

int run(const program_options& options) {
    block_signals();
    if (!options.one.empty()) {
        return run_one(options);
    }
    if (options.cases.empty()) {
        list_cases(options.files);
    } else {
        run_cases(options);
    }
    return interrupted() ? 130 : 0;
}

} // namespace
} // namespace csi_faults

int main(int argc, char** argv) {
    CLI::App app("Makes each call of csi_receiver fail once, and checks what becomes of it. "
                 "Without --cases or --one it lists the cases.",
                 "csi_faults");
    csi_faults::program_options options;
    app.add_option("--daemon", options.files.program, "The program csi_receiver")->required();
    app.add_option("--library", options.files.library, "libcsi_faults_injector.so")->required();
    app.add_option("--folder", options.files.folder, "For its files")->required();
    app.add_option("--cases", options.cases, "File with a case per line");
    app.add_option("--results", options.results, "File to add the results to");
    app.add_option("--seconds", options.seconds, "Start no case after this time");
    app.add_option("--one", options.one, "Run this case only");
    CLI11_PARSE(app, argc, argv);
    try {
        return csi_faults::run(options);
    } catch (const std::exception& failure) {
        std::cerr << "csi_faults: " << failure.what() << '\n';
        return 1;
    }
}
