/// Answers that break the protocol on purpose.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "peers/http_message.h"

namespace peers {

enum class wrong_answer {
    none,
    mode,
    interface,
    type,
    too_long,
    late,
    twice,
    page,
    body,
    cut,
    status,
    redirect
};

/// One that people can ask for.
struct wrong_answer_row {
    std::string_view name;
    wrong_answer kind;
    std::string_view peers; // that can give it: "core", "fusion" and "server", separated by blanks
    std::string_view meaning;
};

/// All but "none", whose name is "off".
[[nodiscard]] const std::vector<wrong_answer_row>& wrong_answers();

/// nullptr when no answer is called so.
[[nodiscard]] const wrong_answer_row* find_wrong_answer(std::string_view name);

/// The names of those that this kind of peer can give: "mode, interface, type".
[[nodiscard]] std::string wrong_answers_of(std::string_view peer);

/// What a UDP peer answers instead of the right reply.
[[nodiscard]] std::string spoil(wrong_answer kind, const std::string& request,
                                const std::string& reply);

/// Changes what the server answers to a request for this path.
void spoil(wrong_answer kind, const std::string& path, http_response& response);

/// Where redirected requests go to: the server answers them like those for the path itself.
inline constexpr std::string_view redirected = "?redirected";

} // namespace peers
