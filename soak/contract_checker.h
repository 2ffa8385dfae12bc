/// Checks every message of the daemon in a soak by the protocol's schemas.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>

#include "peers/journal.h"
#include "soak/report.h"

namespace csi_soak {

/// Any thread may call any function.
class contract_checker {
public:
    explicit contract_checker(reporter& report)
        : report_(report) {}

    /// Takes every message that the journal records, in their order.
    void observe(const peers::message& message);

    /// How many messages of the daemon have been checked.
    [[nodiscard]] std::size_t checked() const;

private:
    reporter& report_;
    mutable std::mutex mutex_; // guards the members below
    std::string command_;      // without a reply so far; empty: none
    std::size_t checked_ = 0;
};

/// The check's name in the report.
constexpr const char* contract_check = "no message breaks the protocol";

} // namespace csi_soak
