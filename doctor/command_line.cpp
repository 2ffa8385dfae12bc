#include "doctor/command_line.h"

#include <cstddef>
#include <string_view>

namespace csi_doctor {

std::optional<options> parse_command_line(const std::vector<std::string>& arguments) {
    constexpr std::string_view color_prefix = "--color=";
    options given;
    for (std::size_t at = 0; at < arguments.size(); ++at) {
        const std::string& argument = arguments[at];
        if (argument == "--offline") {
            given.offline = true;
        } else if (argument == "--json") {
            given.json = true;
        } else if (argument == "--help" || argument == "-h") {
            given.help = true;
        } else if (argument == "--color" && at + 1 < arguments.size()) {
            given.color = arguments[++at];
        } else if (argument.compare(0, color_prefix.size(), color_prefix) == 0) {
            given.color = argument.substr(color_prefix.size());
        } else if (argument.empty() || argument.front() == '-' || !given.path.empty()) {
            return std::nullopt;
        } else {
            given.path = argument;
        }
    }
    const bool known_color =
        given.color == "auto" || given.color == "always" || given.color == "never";
    const bool complete = given.help || !given.path.empty();
    return known_color && complete ? std::optional<options>(given) : std::nullopt;
}

} // namespace csi_doctor
