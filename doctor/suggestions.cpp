#include "doctor/suggestions.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <vector>

namespace csi_doctor {
namespace {

constexpr std::size_t min_part_size = 3;

/// Words that resemble no key, or the wrong one.
constexpr struct {
    std::string_view written;
    std::string_view meant;
} aliases[] = {
    {"log_file", "log_path"}, {"logfile", "log_path"}, {"log_dir", "log_path"},
    {"logdir", "log_path"},   {"bots", "routing"},     {"bot", "routing"},
    {"host", "server"},       {"hostname", "server"},  {"id", "zorvin_uuid"},
};

/// The number of characters to add, remove or change to turn one word into the other.
std::size_t edit_distance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t changed = diagonal + (from[i] == to[j] ? 0U : 1U);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

std::string_view nearest_key(std::string_view written) {
    return *std::min_element(known_keys.begin(), known_keys.end(),
                             [written](std::string_view a, std::string_view b) {
                                 return edit_distance(written, a) < edit_distance(written, b);
                             });
}

/// The first key that contains the word ("uuid", "port"), or else the longest key that the word
/// contains ("export zorvin_uuid", "rest_server"). Empty when there is none.
std::string_view key_by_part(std::string_view written) {
    std::string_view longest;
    for (const std::string_view key : known_keys) {
        if (written.size() >= min_part_size && key.find(written) != std::string_view::npos) {
            return key;
        }
        if (written.find(key) != std::string_view::npos && key.size() > longest.size()) {
            longest = key;
        }
    }
    return longest;
}

} // namespace

std::string_view suggest_key(std::string_view written) {
    for (const auto& alias : aliases) {
        if (written == alias.written) {
            return alias.meant;
        }
    }
    const std::string_view nearest = nearest_key(written);
    const std::size_t distance = edit_distance(written, nearest);
    if (distance <= 1) { // a slip of the finger; "log_pth" contains "log", but means "log_path"
        return nearest;
    }
    const std::string_view related = key_by_part(written);
    if (!related.empty()) {
        return related;
    }
    return distance * 2 <= nearest.size() ? nearest : "";
}

} // namespace csi_doctor
