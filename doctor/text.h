/// Text as findings show it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace csi_doctor {

/// The text with every byte that is not printable ASCII as "\x1b": control characters must not
/// reach the terminal, and characters that only look like a space must be visible.
[[nodiscard]] std::string printable(std::string_view text);

/// The same in double quotes.
[[nodiscard]] std::string in_quotes(std::string_view text);

/// "1 warning", "2 warnings".
[[nodiscard]] std::string counted(std::size_t number, const std::string& noun);

} // namespace csi_doctor
