/// The lines that the daemon writes: recognised by their text.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace csi_doctor {

enum class line_kind : std::uint8_t {
    unknown,
    note,        // known, and of no consequence for the daemon's history
    started,     // with the version
    bot_added,   // with its id
    not_started, // the reason why the daemon exits
    terminated,  // by a signal, with its name
    died,        // by the fault of a core service, with its address
    exception,   // the daemon ends, with the reason
    exited,      // the last line, with the daemon's name
    connected,
    disconnected,
    request_failed, // with the URL and the reason
    received,       // with the command
    object_error,   // with the command
    sent,           // with the server and the text
    core_failed,    // with the core service's address and the request
    core_refused,   // with the core service's address
    fusion_failed,  // with the request
    peer_error,     // with the answer
    fusion_answer,  // likewise
    passed_on,      // with the engine's place and the command
    bot_started,    // with the Bot's id, and the engine with what follows it
    scan_adds,      // with the hwaddr
    scan_found,     // with the hwaddr and the id
    scan_complete,
};

struct known_line {
    line_kind kind = line_kind::unknown;
    std::array<std::string_view, 4> fields; // what stands for the values in the line
};

/// `text`: of the first line, without the time and the line end. `has_time`: it follows a time.
[[nodiscard]] known_line recognise(std::string_view text, bool has_time);

/// Takes "[2026-3-7_9:5:1] " off the front of the text, and returns it in seconds since 1970.
[[nodiscard]] std::optional<std::int64_t> take_time(std::string_view& text);

} // namespace csi_doctor
