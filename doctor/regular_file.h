/// Reads a regular file as a whole, and nothing else.
#pragma once

#include <cstddef>
#include <string>

#include <sys/stat.h>

namespace csi_doctor {

enum class read_outcome { complete, error, not_regular, too_large };

struct regular_file {
    read_outcome outcome = read_outcome::complete;
    int error = 0; // errno, for `error`
    struct stat status {};
    std::string text;
};

/// Reads a file of fewer bytes than `limit`. Neither waits for a FIFO's writer nor opens a device,
/// which could have effects.
[[nodiscard]] regular_file read_regular_file(const std::string& path, std::size_t limit);

/// "a FIFO": for a file that is neither regular nor a directory.
[[nodiscard]] const char* describe_kind(mode_t mode);

} // namespace csi_doctor
