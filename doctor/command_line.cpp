#include "doctor/command_line.h"

#include <cstddef>
#include <string_view>

#include "doctor/text.h"

namespace csi_doctor {
namespace {

constexpr std::string_view color_prefix = "--color=";

constexpr struct {
    std::string_view name;
    bool options::*flag;
} flags[] = {
    {"--offline", &options::offline}, {"--json", &options::json}, {"--quiet", &options::quiet},
    {"--version", &options::version}, {"--help", &options::help}, {"-h", &options::help},
};

bool set_flag(const std::string& argument, options& given) {
    for (const auto& each : flags) {
        if (argument == each.name) {
            given.*each.flag = true;
            return true;
        }
    }
    return false;
}

/// Returns what is wrong with the argument; empty when nothing is.
std::string add_operand(const std::string& argument, options& given) {
    if (!argument.empty() && argument.front() == '-') {
        return "unknown option " + in_quotes(argument);
    }
    if (argument.empty()) {
        return "the name of the configuration file is empty";
    }
    if (!given.path.empty()) {
        return "more than one configuration file: " + in_quotes(given.path) + " and " +
               in_quotes(argument);
    }
    given.path = argument;
    return "";
}

/// Returns what is wrong with the options together; empty when nothing is.
std::string check(const options& given) {
    if (given.color != "auto" && given.color != "always" && given.color != "never") {
        return "--color: " + in_quotes(given.color) + " is not auto, always or never";
    }
    const bool needs_path = !given.help && !given.version;
    return needs_path && given.path.empty() ? "no configuration file given" : "";
}

} // namespace

options parse_command_line(const std::vector<std::string>& arguments) {
    options given;
    for (std::size_t at = 0; at < arguments.size() && given.error.empty(); ++at) {
        const std::string& argument = arguments[at];
        if (argument == "--color") {
            if (at + 1 == arguments.size()) {
                given.error = "--color needs a value: auto, always or never";
            } else {
                given.color = arguments[++at];
            }
        } else if (argument.compare(0, color_prefix.size(), color_prefix) == 0) {
            given.color = argument.substr(color_prefix.size());
        } else if (!set_flag(argument, given)) {
            given.error = add_operand(argument, given);
        }
    }
    if (given.error.empty()) {
        given.error = check(given);
    }
    return given;
}

} // namespace csi_doctor
