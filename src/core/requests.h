/// What requests to the local daemons share: the exchange, the parsing of a reply, the first member
/// of a command to a core service, and "success" in its reply.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/json.h"

namespace csi_receiver {

/// How long each attempt waits for a reply, in ms.
using attempt_timeouts = std::array<int, 2>;

/// Sends the text as one datagram from a fresh port, and once more from the same port when no reply
/// comes in time. Returns nothing when no socket to the address could be made, and an empty text
/// when no reply came. A late reply to the first attempt counts as one to the second: both carry
/// the same request.
[[nodiscard]] std::optional<std::string> ask(const std::string& address, std::uint16_t port,
                                             const std::string& text,
                                             const attempt_timeouts& timeouts_ms);

/// Parses a reply, and logs it when it is not an object.
[[nodiscard]] json::document parse_reply(const std::string& reply);

/// To be alive while a core service's reply is read: a member of the wrong type then ends the
/// process with a line that says whose reply it was, and to which request. Borrows what it is
/// given.
class reading_of_reply : public json::assertion_context {
public:
    reading_of_reply(const std::string& address, const json::value& request,
                     const json::value& reply)
        : address_(address)
        , request_(request)
        , reply_(reply) {}

    [[nodiscard]] std::string describe() const override;

private:
    const std::string& address_;
    const json::value& request_;
    const json::value& reply_;
};

/// {"cmd": command}, to which the caller adds members.
[[nodiscard]] json::document make_request(std::string_view command);

/// Sends the request to the core service and returns the reply's "success"; false when it has none.
/// Anything but a boolean ends the process.
[[nodiscard]] bool succeeds(const std::string& address, const json::document& request);

} // namespace csi_receiver
