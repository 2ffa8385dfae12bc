/// What the library inside the daemon reports to csi_faults: a file that both have mapped.
#pragma once

#include <atomic>
#include <cstdint>

namespace csi_faults {

/// Zero at first.
struct fault_page {
    std::atomic<std::uint32_t> fired; // calls that were made to fail
    std::atomic<std::uint32_t> calls; // system calls seen; allocations do not count
};

// Environment variables of the daemon under test.
constexpr const char* page_variable = "CSI_FAULTS_PAGE";     // the file
constexpr const char* case_variable = "CSI_FAULTS_CASE";     // what to inject
constexpr const char* record_variable = "CSI_FAULTS_RECORD"; // where to list all calls

// Results instead of an error number.
constexpr int short_count = -1; // fewer bytes than there are
constexpr int end_of_file = -2; // 0 bytes

} // namespace csi_faults
