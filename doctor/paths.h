/// Questions about paths in the file system.
#pragma once

#include <string>

namespace csi_doctor {

[[nodiscard]] bool path_exists(const std::string& path);
[[nodiscard]] bool is_directory(const std::string& path);
[[nodiscard]] bool is_symbolic_link(const std::string& path);

/// The path itself or its nearest parent that is there, if only as a symbolic link that leads
/// nowhere.
[[nodiscard]] std::string nearest_existing(std::string path);

/// The path without its last component: "/" for "/tmp", "." for "here". Looks at the text only.
[[nodiscard]] std::string parent_directory(std::string path);

} // namespace csi_doctor
