/// Bytes that are not text: how to recognise them, and how to write them as text.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace csi_lab {

[[nodiscard]] bool is_utf8(std::string_view text);

/// The beginning of the text: at most this many bytes, and no part of a UTF-8 character.
[[nodiscard]] std::string_view beginning_of(std::string_view text, std::size_t max_bytes);

[[nodiscard]] std::string to_base64(std::string_view bytes);

/// nullopt when the text is not base64 with padding.
[[nodiscard]] std::optional<std::string> from_base64(std::string_view text);

} // namespace csi_lab
