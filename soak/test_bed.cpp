#include "soak/test_bed.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace csi_soak {
namespace {

constexpr std::chrono::milliseconds step_period(10);
constexpr std::chrono::minutes timeout(5);

std::unique_ptr<peers::installation> make_installation(peers::journal& journal,
                                                       const bed_layout& layout) {
    peers::installation_options options;
    options.zorvins = layout.zorvins;
    options.bots = layout.bots;
    options.http_port = 0;
    options.fusion = true;
    options.times = {std::chrono::milliseconds(300), std::chrono::milliseconds(500)};
    if (layout.silent != nullptr) {
        options.silent = {layout.silent};
    }
    auto result = std::make_unique<peers::installation>(journal, options);
    if (layout.slow_start) {
        for (unsigned index = 0; index < options.zorvins; ++index) {
            result->core(index).peer().set_delay(std::chrono::milliseconds(500));
        }
    }
    return result;
}

std::string configuration_for(absent_core_services absent) {
    peers::installation_options options;
    options.zorvins = absent.count;
    options.bots = absent.count;
    return peers::configuration(options);
}

} // namespace

test_bed::test_bed(const run_options& options, const std::string& name, reporter& report,
                   const bed_layout& layout)
    : report_(report)
    , installation_(make_installation(journal_, layout))
    , daemon_(options.daemon, options.folder + "/" + name,
              installation_->configuration() + (layout.slow_start ? "csi_file=/dev/null\n" : ""))
    , log_(daemon_.log_path(), report) {
    report_.print(name);
}

test_bed::test_bed(const run_options& options, const std::string& name, reporter& report,
                   absent_core_services absent)
    : report_(report)
    , daemon_(options.daemon, options.folder + "/" + name, configuration_for(absent))
    , log_(daemon_.log_path(), report) {
    report_.print(name);
}

steady_clock::duration test_bed::wait_for(const condition& holds) {
    const steady_clock::time_point begin = steady_clock::now();
    for (log_.read(); !holds(); log_.read()) {
        if (daemon_.wait(step_period) || steady_clock::now() - begin > timeout) {
            throw std::runtime_error("the case did not come about: " + daemon_.errors());
        }
    }
    return steady_clock::now() - begin;
}

void test_bed::wait_for_attach() {
    wait_for([this] { return recorded("daemon", "server", R"("bot_info":[{"bot":101)"); });
}

void test_bed::send_command(const char* command) {
    installation_->server().queue(command);
    wait_for([&] { return recorded("server", "daemon", command); });
}

void test_bed::start_scan() {
    send_command(R"({"cmd":"scan"})");
    wait_for([this] { return log_.scanning(); });
}

void test_bed::silence(const char* who) {
    static_cast<void>(installation_->set_silent(who, true));
}

steady_clock::duration test_bed::terminate() {
    const steady_clock::time_point begin = steady_clock::now();
    daemon_.terminate();
    const auto exit = daemon_.wait(timeout);
    report_.expect(exit && exit->wait_status == 0, "SIGTERM ends the daemon properly",
                   exit ? "wait status " + std::to_string(exit->wait_status) : "not at all");
    return steady_clock::now() - begin;
}

void test_bed::queue_and_await(const char* command, const char* to, const char* request) {
    act_and_await([&] { installation_->server().queue(command); }, to, request);
}

void test_bed::silence_and_await(const char* who, const char* to, const char* request) {
    act_and_await([&] { silence(who); }, to, request);
}

void test_bed::act_and_await(const std::function<void()>& act, const char* to,
                             const char* request) {
    const std::size_t before = count("daemon", to, request);
    act();
    wait_for([&] { return count("daemon", to, request) > before; });
}

std::size_t test_bed::count(const char* from, const char* to, const char* text) const {
    const auto messages = journal_.select(from, to);
    return static_cast<std::size_t>(
        std::count_if(messages.begin(), messages.end(), [text](const peers::message& message) {
            return message.text.find(text) != std::string::npos;
        }));
}

} // namespace csi_soak
