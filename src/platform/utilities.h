/// Small free functions that several subsystems share. Any thread may call them, but the time-zone
/// functions, which are for start-up.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace csi_receiver {

/// The text without the blanks, tabs and line ends around it.
[[nodiscard]] std::string trim(std::string_view text);

/// The fields between the separators; empty fields are dropped.
[[nodiscard]] std::vector<std::string> split(const std::string& text, char separator);

/// The number that the leading decimal digits give: 0 without digits, the largest value when they
/// give more. No sign and no blanks are taken.
[[nodiscard]] std::uint64_t parse_decimal(std::string_view text);

/// Turns an id that begins with "0x" into decimal text, in place; other ids stay as they are.
void hex_id_to_decimal(std::string& id);

/// Six bytes as "aa:bb:cc:dd:ee:ff".
[[nodiscard]] std::string mac_to_string(const std::array<std::uint8_t, 6>& mac);

/// The low 48 bits of an id in the same form.
[[nodiscard]] std::string id_to_mac(std::uint64_t id);

/// Runs a command through the shell and returns its output on one line: white space around it and
/// the line ends in it are gone. Empty when the command could not be started. Blocks until it ends.
[[nodiscard]] std::string run_command(const std::string& command);

/// The router's configuration tool.
constexpr const char* time_zone_tool = "/sbin/syscfg";

/// The fields of the router's time zone as `tool` tells it, or of a default without the tool.
std::vector<std::string> get_time_zone(const std::string& tool = time_zone_tool);

/// Sets the process's time zone from the first field of get_time_zone and returns all fields.
std::vector<std::string> apply_time_zone(const std::string& tool = time_zone_tool);

/// The pre-shared key of a network whose name is `salt`, as 64 hexadecimal digits; empty when the
/// derivation fails.
[[nodiscard]] std::string derive_psk(const std::string& salt);

} // namespace csi_receiver
