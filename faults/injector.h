/// Decides which call of the daemon fails. Part of the library that csi_faults loads into it.
#pragma once

namespace csi_faults {

/// What the call must do instead of its work: fail with this error number, or one of the results
/// in page.h; 0 to do its work. The calls of a kind have one name.
[[nodiscard]] int fault_for(const char* call);
[[nodiscard]] int fault_for_memory();

/// Calls count only between these two, and not while the C library starts or ends the process.
void begin_counting();
void end_counting();

} // namespace csi_faults
