/// The program csi_fleet: plays one REST server and many core services for scripts/fleet, which
/// tells it line by line what to do.
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "fleet/wire.h"
#include "peers/core_service.h"
#include "peers/rest_server.h"

namespace {

using std::chrono::steady_clock;

struct options {
    unsigned count = 1;
    std::uint16_t port = 18091;
    std::string attaches;
    std::pair<int, int> intervals = {0, 0};
};

class fleet {
public:
    explicit fleet(const options& given)
        : intervals_(given.intervals.first, given.intervals.second)
        , attaches_(given.attaches)
        , wire_(std::in_place, given.port)
        , server_(observed(), server_options(given)) {
        peers::core_service_options radio;
        radio.times.appear_after = std::chrono::milliseconds(500); // a scan is over at once
        for (unsigned index = 0; index < given.count; ++index) {
            const std::string address =
                "127.1." + std::to_string(index / 250) + "." + std::to_string(index % 250 + 1);
            cores_.push_back(std::make_unique<peers::core_service>(journal_, address, radio));
        }
    }

    /// The answer to a line of input, in one line.
    std::string carry_out(const std::string& line) {
        if (line == "stop") {
            server_.stop();
        } else if (line == "start") {
            server_.start();
            since_ = steady_clock::now();
        } else if (line == "pollers") {
            return std::to_string(pollers());
        } else if (line == "wire") {
            const csi_fleet::fleet_wire::cost cost = wire_->count();
            return std::to_string(cost.attach) + " " + std::to_string(cost.polls) + " " +
                   std::to_string(cost.bytes) + (cost.complete ? " complete" : " incomplete");
        } else if (line == "unwire") {
            wire_.reset(); // it costs each packet a little
        }
        return std::to_string(now_ms()) + " " + std::to_string(server_.gets()) + " " +
               std::to_string(server_.posts()) + " " + std::to_string(server_.attaches());
    }

private:
    static peers::rest_server_options server_options(const options& given) {
        peers::rest_server_options result;
        result.port = given.port;
        result.threads = given.count + 16U; // a broken connection may still hold one
        result.kept_requests = std::size_t{given.count} * 30 + 100;
        return result;
    }

    [[nodiscard]] long long now_ms() const {
        const auto since = steady_clock::now() - begin_;
        return std::chrono::duration_cast<std::chrono::milliseconds>(since).count();
    }

    /// Writes each attach down as it comes, and chooses the answer to it.
    peers::journal& observed() {
        journal_.on_message([this](const peers::message& what) {
            if (what.to == "server" && what.text.rfind(R"({"type":"zorvin")", 0) == 0) {
                attaches_ << now_ms() << std::endl;
                if (intervals_.b() > 0) {
                    server_.set_attach_answer(R"({"cmd":"poll_interval","interval":)" +
                                              std::to_string(intervals_(dice_)) + "}");
                }
            }
        });
        return journal_;
    }

    /// How many daemons have polled lately, and since the server's latest start.
    [[nodiscard]] std::size_t pollers() const {
        std::set<std::string> paths;
        for (const peers::http_request& request : server_.requests()) {
            if (request.method == "GET" && request.when > since_) {
                paths.insert(request.path);
            }
        }
        return paths.size();
    }

    const steady_clock::time_point begin_ = steady_clock::now();
    steady_clock::time_point since_ = begin_;
    std::uniform_int_distribution<int> intervals_; ///< These three: under the journal's lock.
    std::minstd_rand dice_;
    std::ofstream attaches_;
    peers::journal journal_{1};
    std::optional<csi_fleet::fleet_wire> wire_;
    peers::rest_server server_;
    std::vector<std::unique_ptr<peers::core_service>> cores_;
};

} // namespace

int main(int count, char** values) {
    CLI::App app("Plays one REST server and many core services for scripts/fleet.", "csi_fleet");
    options given;
    app.add_option("--count", given.count, "Core services")->check(CLI::Range(1, 5000));
    app.add_option("--http-port", given.port, "Port of the REST server");
    app.add_option("--attaches", given.attaches, "File for the moments of the attaches, in ms");
    app.add_option("--intervals", given.intervals, "Of polls, from, to: answers to attaches");
    CLI11_PARSE(app, count, values);
    try {
        fleet all(given);
        std::cout << "ready" << std::endl;
        for (std::string line; std::getline(std::cin, line);) {
            std::cout << all.carry_out(line) << std::endl;
        }
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "csi_fleet: " << failure.what() << '\n';
        return 1;
    }
}
