#include "lab/page_server.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "lab/annotation.h"
#include "lab/input_error.h"
#include "lab/page_files.h"
#include "platform/json.h"
#include "platform/socket.h"

namespace csi_lab {
namespace {

constexpr std::size_t threads = 16; // browsers keep up to six connections open
constexpr const char* json_type = "application/json";
constexpr const char* recording_type = "application/x-ndjson";

constexpr int forbidden = 403;
constexpr int not_found = 404;
constexpr int wrong_method = 405;
constexpr int wrong_type = 415;

peers::http_response make_response(int status, std::string body, std::string type) {
    peers::http_response result;
    result.status = status;
    result.body = std::move(body);
    result.content_type = std::move(type);
    result.headers = {
        {"Content-Security-Policy",
         "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src "
         "data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
        {"X-Content-Type-Options", "nosniff"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Referrer-Policy", "no-referrer"},
        {"Cache-Control", "no-store"}};
    return result;
}

peers::http_response make_error(int status, const std::string& text) {
    json::document body(rapidjson::kObjectType);
    json::set(body, "error", text, body.GetAllocator());
    return make_response(status, json::write(body), json_type);
}

bool is_own_host(const std::string& host, const page_address& at) {
    const std::string suffix = ":" + std::to_string(at.port);
    const bool has_port = host.size() > suffix.size() &&
                          host.compare(host.size() - suffix.size(), suffix.size(), suffix) == 0;
    if (!has_port && at.port != 80) {
        return false;
    }
    const std::string name = has_port ? host.substr(0, host.size() - suffix.size()) : host;
    const bool all_addresses = at.address == "0.0.0.0";
    return name == "localhost" || name == at.address ||
           (all_addresses && csi_receiver::is_inet_address(name));
}

/// The value of a parameter of the request; 0 if it is missing.
std::uint64_t number_parameter(const std::string& path, const std::string& name) {
    const std::size_t at = path.find(name + "=");
    return at == std::string::npos
               ? 0
               : std::strtoull(path.c_str() + at + name.size() + 1, nullptr, 10);
}

peers::http_response judge_lines(const std::string& text) {
    std::istringstream lines(text);
    try {
        return make_response(200, "{\"items\":" + format_annotated(read_recording(lines)) + "}",
                             json_type);
    } catch (const input_error& wrong) {
        return make_error(400, wrong.what());
    }
}

bool has_control_character(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        const auto code = static_cast<unsigned char>(c);
        return (code < 0x20 && c != '\t') || code == 0x7f;
    });
}

} // namespace

page_address parse_page_address(const std::string& text) {
    page_address result;
    const std::size_t colon = text.rfind(':');
    if (colon != std::string::npos) {
        result.address = text.substr(0, colon);
    }
    if (!csi_receiver::is_inet_address(result.address)) {
        throw std::runtime_error("\"" + result.address + "\" is not an IPv4 address");
    }
    const std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
    if (text.empty()) {
        return result;
    }
    const bool is_number = !port.empty() && port.size() <= 5 &&
                           port.find_first_not_of("0123456789") == std::string::npos;
    if (!is_number || std::strtoul(port.c_str(), nullptr, 10) > 65535) {
        throw std::runtime_error("\"" + port + "\" is not a port, 0 to 65535");
    }
    result.port = static_cast<std::uint16_t>(std::strtoul(port.c_str(), nullptr, 10));
    return result;
}

std::optional<int> refusal(const peers::http_request& request, const page_address& at) {
    const std::string host = request.header("Host");
    if (!is_own_host(host, at)) {
        return forbidden;
    }
    const std::string origin = request.header("Origin");
    if (!origin.empty() && origin != "http://" + host) {
        return forbidden;
    }
    // No form can send these types, and a script of another page only after it has asked.
    const std::string type = request.header("Content-Type");
    if (request.method == "POST" && type != json_type && type != recording_type) {
        return wrong_type;
    }
    return std::nullopt;
}

page_server::page_server(page_address at, source from)
    : at_(std::move(at))
    , source_(std::move(from))
    , listener_(
          at_.port, threads,
          [this](const peers::http_request& request, const peers::connection&) {
              return respond(request);
          },
          at_.address) {}

std::string page_server::url() const {
    const bool all_addresses = at_.address == "0.0.0.0";
    return "http://" + (all_addresses ? "127.0.0.1" : at_.address) + ":" +
           std::to_string(listener_.port()) + "/";
}

std::string page_server::place() const {
    return url() +
           (at_.address == "0.0.0.0" ? " and this port of this machine's other addresses" : "");
}

peers::http_response page_server::respond(const peers::http_request& request) const {
    if (const auto status = refusal(request, {at_.address, listener_.port()})) {
        return make_error(
            *status, *status == wrong_type
                         ? "Content-Type must be application/json or application/x-ndjson"
                         : "this is " + url() + ", which answers only people and its own page");
    }
    if (request.method == "POST") {
        return answer_post(request);
    }
    const std::string path = request.path.substr(0, request.path.find('?'));
    if (path == "/start") {
        return make_response(200, source_.facts, json_type);
    }
    if (path == "/feed") {
        const position from{number_parameter(request.path, "from"),
                            number_parameter(request.path, "version")};
        return make_response(200, source_.read(from), json_type);
    }
    struct file {
        std::string_view path;
        std::string_view text;
        const char* type;
    };
    const std::array<file, 3> files{{{"/", page_html, "text/html; charset=utf-8"},
                                     {"/page.css", page_style, "text/css; charset=utf-8"},
                                     {"/page.js", page_script, "text/javascript; charset=utf-8"}}};
    for (const file& one : files) {
        if (one.path == path) {
            return make_response(200, std::string(one.text), one.type);
        }
    }
    return make_error(not_found, "there is no " + path);
}

peers::http_response page_server::answer_post(const peers::http_request& request) const {
    if (request.path == "/recording") {
        return judge_lines(request.body);
    }
    if (request.path != "/command" || !source_.execute) {
        return make_error(wrong_method, "there is nothing to post to at " + request.path);
    }
    const json::document parsed = json::parse(request.body);
    const auto line = parsed.IsObject() ? json::find_string(parsed, "line") : std::nullopt;
    if (!line) {
        return make_error(400, "a JSON object with a text \"line\" is needed");
    }
    if (has_control_character(*line)) {
        return make_error(400, "a line has no control characters");
    }
    return make_response(200, source_.execute(std::string(*line)), json_type);
}

} // namespace csi_lab
