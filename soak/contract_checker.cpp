#include "soak/contract_checker.h"

#include <utility>

#include "contract/exchange.h"
#include "contract/judge.h"
#include "soak/commands.h"

namespace csi_soak {
namespace {

contract::kind kind_of(const peers::message& message, const std::string& command) {
    return contract::classify(
        {message.from, message.to, message.text, command, message.method, message.path});
}

} // namespace

void contract_checker::observe(const peers::message& message) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (message.from == "server") {
        command_ = message.text;
    }
    if (message.from != "daemon" || message.to == "lab") {
        return;
    }
    ++checked_;
    contract::kind kind = kind_of(message, "");
    if (kind.family == "reply") {
        const std::string command = std::exchange(command_, "");
        // A faulty server may have sent only a part of the command.
        kind = kind_of(message, message.text == object_error ? "" : command);
    }
    for (const contract::breach& one : contract::judge(kind, message.text)) {
        report_.fail(contract_check,
                     contract::name_of(kind) + ": " + describe(one) + ": " + message.text);
    }
}

std::size_t contract_checker::checked() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return checked_;
}

} // namespace csi_soak
