#include "faults/transcript.h"

#include <cstdlib>

namespace csi_faults {
namespace {

bool begins(const std::string& text, const std::string& with) {
    return text.compare(0, with.size(), with) == 0;
}

/// Commands and their replies begin with their number.
const std::string numbered = R"({"n":)";

} // namespace

transcript::transcript(peers::journal& journal) {
    journal.on_message([this](const peers::message& message) { add(message); });
}

transcript::counts transcript::count() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return counts_;
}

bool transcript::wait_for(const predicate& holds, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return added_.wait_for(lock, timeout, [&] { return holds(counts_); });
}

void transcript::add(const peers::message& message) {
    const bool to_server = message.from == "daemon" && message.to == "server";
    const bool from_server = message.from == "server" && message.to == "daemon";
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (begins(message.text, numbered) && (to_server || from_server)) {
            const auto number = static_cast<unsigned>(
                std::strtoul(message.text.c_str() + numbered.size(), nullptr, 10));
            ++(to_server ? counts_.replies : counts_.handed_out)[number];
        } else if (to_server) {
            counts_.attaches += begins(message.text, R"({"type":"zorvin")") ? 1U : 0U;
            counts_.scan_reports += begins(message.text, R"({"cmd":"scan")") ? 1U : 0U;
            counts_.status_messages += begins(message.text, R"({"bot_info":)") ? 1U : 0U;
        }
    }
    added_.notify_all();
}

} // namespace csi_faults
