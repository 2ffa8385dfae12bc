/// The configuration: a map from lower-case keys to trimmed values, and the file it is read from.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

namespace csi_receiver {

/// Filled at start-up and completed by the entry point. Main thread only.
using configuration = std::unordered_map<std::string, std::string>;

/// One line of the file; `accepted` is false for comments and lines without a value.
struct configuration_line {
    std::string key;
    std::string value;
    bool accepted;
};

[[nodiscard]] configuration_line parse_line(const std::string& line, char separator);

/// Reads the whole file; the last line of a key counts. The map is empty when the file cannot be
/// read or holds no entry.
[[nodiscard]] configuration read_configuration(const std::string& path, char separator);

[[nodiscard]] bool has_key(const configuration& map, const std::string& key);

/// The value of `key`; adds an empty one when it is absent.
[[nodiscard]] const std::string& get(configuration& map, std::string_view key);

} // namespace csi_receiver
