// A conversation. Each line is a message from the server or, while the daemon executes one, the
// answer to its next request. After the last line, no peer answers.
#include "client/zorvin_client.h"
#include "core/core_request.h"
#include "harness.h"

using namespace csi_receiver;

namespace {

std::string next_answer(std::istringstream& lines, std::uint16_t port, const std::string& request) {
    assert(!fuzz::end_expected); // the answer before should have ended the daemon
    std::string text;
    std::getline(lines, text);
    const json::document answer = json::parse(text);
    const json::value* success = answer.IsObject() ? json::find(answer, "success") : nullptr;
    // A request without an engine is one for sounding. Only its answer must have the right types.
    fuzz::end_expected = !json::find_string(json::parse(request), "engineType") &&
                         port == core_service_port && success != nullptr && !success->IsBool();
    return text;
}

} // namespace

void fuzz::run(const std::string& input) {
    std::istringstream lines(input);
    answer = [&](auto port, const auto& request) { return next_answer(lines, port, request); };
    configuration settings{{"version", "v9"}};
    zorvin_client client(-1, settings);
    client.routing().add_routing(
        "101:127.0.0.1:wlan0:0A0000000101,102:127.0.0.2:wlan1:0A0000000102");
    for (std::string text; std::getline(lines, text);) {
        std::string reply;
        const char* unanswered = client.parse_msg(text, reply) ? "scan" : "disconnect";
        assert(!end_expected && log.str().back() == '\n');
        assert(reply.empty() ? json::find_string(json::parse(text), "cmd") == unanswered
                             : json::parse(reply).IsObject());
    }
}
