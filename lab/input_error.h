/// A file that was given to the lab is wrong.
#pragma once

#include <stdexcept>

namespace csi_lab {

/// The text says what is wrong, and in which lines.
struct input_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace csi_lab
