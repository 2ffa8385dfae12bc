// A conversation: each line is a message of the server's or, while that is carried out, the reply
// to a request of the daemon's. After the last line all peers are away.
#include "client/zorvin_client.h"
#include "core/core_request.h"
#include "harness.h"

using namespace csi_receiver;

namespace {

std::string take_reply(std::istringstream& texts, std::uint16_t port, const std::string& request) {
    assert(!fuzz::end_is_wanted); // the reply before was to end the daemon
    std::string text;
    std::getline(texts, text);
    const json::document reply = json::parse(text);
    const json::value* success = reply.IsObject() ? json::find(reply, "success") : nullptr;
    // What names no engine is a request for sounding, the one whose reply is read without mercy.
    fuzz::end_is_wanted = !json::find_string(json::parse(request), "engineType") &&
                          port == core_service_port && success != nullptr && !success->IsBool();
    return text;
}

} // namespace

void fuzz::run(const std::string& input) {
    std::istringstream texts(input);
    answer = [&](auto port, const auto& request) { return take_reply(texts, port, request); };
    configuration settings{{"version", "v9"}};
    zorvin_client client(-1, settings);
    client.routing().add_routing(
        "101:127.0.0.1:wlan0:0A0000000101,102:127.0.0.2:wlan1:0A0000000102");
    for (std::string text; std::getline(texts, text);) {
        std::string reply;
        const char* silent = client.parse_msg(text, reply) ? "scan" : "disconnect";
        assert(!end_is_wanted && log.str().back() == '\n');
        assert(reply.empty() ? json::find_string(json::parse(text), "cmd") == silent
                             : json::parse(reply).IsObject());
    }
}
