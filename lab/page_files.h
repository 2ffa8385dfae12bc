/// The page's files, embedded into the program.
#pragma once

#include <string_view>

namespace csi_lab {

// Generated from the files in lab/page at build time.
extern const std::string_view page_html;
extern const std::string_view page_style;
extern const std::string_view page_script;
// SHA-256 in hexadecimal.
extern const std::string_view page_style_hash;
extern const std::string_view page_script_hash;

} // namespace csi_lab
