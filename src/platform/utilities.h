/// Small free functions that several subsystems share. Any thread may call them, except for the
/// time-zone functions, which are for start-up.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace csi_receiver {

/// The text without leading and trailing white space.
[[nodiscard]] std::string trim(std::string_view text);

/// The fields between the separators; empty fields are dropped.
[[nodiscard]] std::vector<std::string> split(const std::string& text, char separator);

/// The number that the leading decimal digits give; 0 without digits, the largest value when the
/// number does not fit. A sign or a blank is not a digit.
[[nodiscard]] std::uint64_t parse_decimal(std::string_view text);

/// Turns an id that begins with "0x" into decimal text, in place; other ids stay as they are.
void hex_id_to_decimal(std::string& id);

/// ASCII letters in lower case, whatever the locale.
[[nodiscard]] char to_lower(char c);
[[nodiscard]] std::string to_lower(std::string_view text);

/// Each byte as two lower-case hexadecimal digits, with `separator` between the bytes.
[[nodiscard]] std::string to_hex(const std::uint8_t* bytes, std::size_t count,
                                 std::string_view separator);

/// Six bytes as "aa:bb:cc:dd:ee:ff".
[[nodiscard]] std::string mac_to_string(const std::array<std::uint8_t, 6>& mac);

/// The low 48 bits of an id in the same form.
[[nodiscard]] std::string id_to_mac(std::uint64_t id);

/// Runs a command through the shell and returns its output as one line, without line ends and outer
/// white space. Empty when the command could not be started. Blocks until it ends.
[[nodiscard]] std::string run_command(const std::string& command);

/// The router's configuration tool.
constexpr const char* time_zone_tool = "/sbin/syscfg";

/// The fields of the time zone that `tool` prints, or of a default when there is no such tool.
std::vector<std::string> get_time_zone(const std::string& tool = time_zone_tool);

/// Sets the process's time zone from the first field of get_time_zone and returns all fields.
std::vector<std::string> apply_time_zone(const std::string& tool = time_zone_tool);

} // namespace csi_receiver
