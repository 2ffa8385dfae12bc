#include "lab/recording.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "lab/encoding.h"
#include "lab/input_file.h"
#include "peers/core_service.h"
#include "platform/json.h"

namespace csi_lab {
namespace {

constexpr std::array<std::string_view, 4> names{"daemon", "server", "core", "fusion"};
constexpr const char* local = "127.0.0.1"; // where the lab's server and fusion daemon are

bool is_name(std::string_view text) {
    return std::find(names.begin(), names.end(), text) != names.end();
}

std::string string_member(const json::value& object, const char* name, const char* otherwise) {
    const json::value* const member = json::find(object, name);
    if (member == nullptr) {
        return otherwise;
    }
    if (!member->IsString()) {
        throw std::runtime_error(std::string("\"") + name + "\" is not a string");
    }
    return std::string(json::text_of(*member));
}

std::string text_of_entry(const json::value& object) {
    if (json::find(object, "base64") == nullptr) {
        return string_member(object, "text", "");
    }
    const auto bytes = from_base64(string_member(object, "base64", ""));
    if (!bytes) {
        throw std::runtime_error("\"base64\" is not base64");
    }
    return *bytes;
}

int status_of(const json::value& object) {
    const auto status = json::find_int(object, "status");
    if (json::find(object, "status") == nullptr) {
        return 0;
    }
    if (!status || *status < 100 || *status > 599) {
        throw std::runtime_error("\"status\" is not an HTTP status");
    }
    return *status;
}

void check_names(const entry& what) {
    if (!is_name(what.from) || !is_name(what.to)) {
        throw std::runtime_error(
            R"("from" and "to" are not "daemon", "server", "core" or "fusion")");
    }
    if ((what.from == "daemon") == (what.to == "daemon")) {
        throw std::runtime_error(R"(either "from" or "to" must be "daemon")");
    }
}

void read_time(const json::value& object, entry& to) {
    const json::value* const time = json::find(object, "time");
    if (time != nullptr && !time->IsNumber()) {
        throw std::runtime_error("\"time\" is not a number");
    }
    to.time = time == nullptr ? 0 : time->GetDouble();
}

auto add_entry_to(std::vector<entry>& result) {
    return [&result](std::size_t number, const std::string& line) {
        if (line.find_first_not_of(" \t\r") != std::string::npos) {
            result.push_back(parse_entry(line));
            result.back().line = number;
        }
    };
}

} // namespace

std::string format_entry(const entry& what) {
    json::document line(rapidjson::kObjectType);
    json::allocator& memory = line.GetAllocator();
    json::set(line, "time", json::value(std::round(what.time * 1000) / 1000), memory);
    json::set(line, "from", what.from, memory);
    json::set(line, "to", what.to, memory);
    json::set(line, "address", what.address, memory);
    if (!what.method.empty()) {
        json::set(line, "method", what.method, memory);
        json::set(line, "path", what.path, memory);
    }
    if (what.status != 0) {
        json::set(line, "status", json::value(what.status), memory);
    }
    if (!what.event.empty()) {
        json::set(line, "event", what.event, memory);
    }
    if (is_utf8(what.text)) {
        json::set(line, "text", what.text, memory);
    } else {
        json::set(line, "base64", to_base64(what.text), memory);
    }
    return json::write(line);
}

entry parse_entry(const std::string& line) {
    const json::document parsed = json::parse(line);
    if (!parsed.IsObject()) {
        throw std::runtime_error("not a JSON object");
    }
    entry result;
    read_time(parsed, result);
    result.from = string_member(parsed, "from", "");
    result.to = string_member(parsed, "to", "");
    check_names(result);
    result.address = string_member(parsed, "address", local);
    result.text = text_of_entry(parsed);
    result.method = string_member(parsed, "method", "");
    result.path = string_member(parsed, "path", "");
    result.status = status_of(parsed);
    result.event = string_member(parsed, "event", "");
    return result;
}

std::vector<entry> read_recording(std::istream& from) {
    std::vector<entry> result;
    read_lines(from, add_entry_to(result));
    return result;
}

std::vector<entry> read_recording(const std::string& path) {
    std::vector<entry> result;
    read_lines(path, add_entry_to(result));
    return result;
}

std::optional<entry> recorder::entry_of(const peers::message& what) const {
    const std::string core_prefix = peers::core_name("");
    entry result;
    result.time = std::chrono::duration<double>(what.when - start_).count();
    result.from = what.from;
    result.to = what.to;
    result.address = local;
    for (std::string* const name : {&result.from, &result.to}) {
        if (name->rfind(core_prefix, 0) == 0) {
            result.address = name->substr(core_prefix.size());
            *name = "core";
        }
        if (!is_name(*name)) {
            return std::nullopt;
        }
    }
    result.text = what.text;
    result.method = what.method;
    result.path = what.path;
    result.status = what.status;
    result.event = what.event;
    return result;
}

recording_file::recording_file(const std::string& path)
    : file_(path) {
    if (!file_) {
        throw std::runtime_error("cannot write " + path + ": " +
                                 std::generic_category().message(errno));
    }
}

void recording_file::write(const entry& what) {
    file_ << format_entry(what) << '\n' << std::flush;
}

} // namespace csi_lab
