#include "soak/fifo_log.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

#include "peers/installation.h"
#include "peers/journal.h"
#include "platform/descriptor.h"
#include "soak/daemon_process.h"

namespace csi_soak {
namespace {

using std::chrono::seconds;

constexpr const char* check = "a FIFO as log stops nothing";
constexpr long commands = 20; // each is logged twice: together, more than a FIFO takes

bool all_answered(const peers::journal& journal) {
    const auto is_reply = [](const peers::message& message) {
        return message.to == "server" && message.text.find("Not supported") != std::string::npos;
    };
    const auto has_all = [&](const std::vector<peers::message>& messages) {
        return std::count_if(messages.begin(), messages.end(), is_reply) == commands;
    };
    return journal.wait_for(has_all, seconds(15));
}

void check_one(const run_options& options, const std::string& name, bool with_reader,
               reporter& report) {
    report.print(name);
    const std::string folder = options.folder + "/" + name;
    const std::string fifo = folder + "/csi_receiver.log";
    std::filesystem::create_directory(folder);
    report.expect(mkfifo(fifo.c_str(), 0600) == 0, check, "no FIFO could be made");
    const csi_receiver::descriptor reader(
        with_reader ? open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1);
    peers::journal journal;
    peers::installation_options peers;
    peers.http_port = 0;
    peers::installation installation(journal, peers);
    for (long command = 0; command < commands; ++command) {
        installation.server().queue(R"({"cmd":")" + std::string(5000, 'x') + "\"}");
    }
    daemon_process daemon(options.daemon, folder, installation.configuration());
    report.expect(all_answered(journal), check, name + ": commands have no reply");
    daemon.terminate();
    const auto exit = daemon.wait(seconds(5));
    report.expect(exit && exit->wait_status == 0, check, name + ": no exit with status 0");
}

} // namespace

void check_fifo_as_log(const run_options& options, reporter& report) {
    check_one(options, "FIFO as log, no reader", false, report);
    check_one(options, "FIFO as log, and the reader does not read", true, report);
    report.add_check(check, std::to_string(commands) +
                                " long commands were answered without a reader, and with one that "
                                "does not read");
}

} // namespace csi_soak
