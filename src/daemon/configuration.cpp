#include "daemon/configuration.h"

#include <fstream>
#include <string_view>

#include "platform/utilities.h"

namespace csi_receiver {

configuration_line parse_line(const std::string& line, char separator) {
    configuration_line result{{}, {}, false};
    const std::string_view text = line;
    const std::size_t at = text.find(separator);
    if (text.substr(0, 1) == "#" || at == std::string_view::npos) {
        return result;
    }
    result.key = to_lower(trim(text.substr(0, at)));
    const std::string_view rest = text.substr(at + 1);
    result.value = trim(rest.substr(0, rest.find('#')));
    result.accepted = !result.value.empty();
    return result;
}

configuration read_configuration(const std::string& path, char separator) {
    configuration map;
    std::ifstream file(path);
    file.exceptions(std::ios::badbit); // or refused memory would look like the end of the file
    try {
        for (std::string text; std::getline(file, text);) {
            configuration_line line = parse_line(text, separator);
            if (line.accepted) {
                map[line.key] = std::move(line.value);
            }
        }
    } catch (const std::ios::failure&) { // a read error: what was read so far counts
        return map;
    }
    return map;
}

bool has_key(const configuration& map, const std::string& key) {
    return map.count(key) != 0;
}

const std::string& get(configuration& map, std::string_view key) {
    return map[std::string(key)];
}

} // namespace csi_receiver
