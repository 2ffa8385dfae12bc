#include "doctor/suggestions.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace csi_doctor {
namespace {

constexpr std::size_t shortest_part = 3;

/// Words that look like none of the keys, or like the wrong one.
const struct {
    const char* written;
    const char* meant;
} aliases[] = {
    {"log_file", "log_path"}, {"logfile", "log_path"}, {"log_dir", "log_path"},
    {"logdir", "log_path"},   {"bots", "routing"},     {"bot", "routing"},
    {"host", "server"},       {"hostname", "server"},  {"id", "zorvin_uuid"},
};

/// How many characters must be added, removed or changed to make the one from the other.
std::size_t edit_distance(const std::string& from, const std::string& to) {
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

std::string nearest_to(const std::string& key) {
    const auto distance = [&key](const char* known) { return edit_distance(key, known); };
    return *std::min_element(
        known_keys.begin(), known_keys.end(),
        [&](const char* a, const char* b) { return distance(a) < distance(b); });
}

/// The key that the written one is a part of ("uuid", "port"), or else the longest that is a part
/// of the written one ("export zorvin_uuid", "rest_server").
std::string by_containment(const std::string& key) {
    std::string longest;
    for (std::string known : known_keys) {
        if (key.size() >= shortest_part && known.find(key) != std::string::npos) {
            return known;
        }
        if (key.find(known) != std::string::npos && known.size() > longest.size()) {
            longest = known;
        }
    }
    return longest;
}

} // namespace

std::string likely_meant(const std::string& key) {
    for (const auto& alias : aliases) {
        if (key == alias.written) {
            return alias.meant;
        }
    }
    std::string nearest = nearest_to(key);
    const std::size_t distance = edit_distance(key, nearest);
    if (distance <= 1) { // a slip of the finger; else "log_pth" would be taken for "log"
        return nearest;
    }
    const std::string related = by_containment(key);
    return !related.empty() ? related : distance * 2 <= nearest.size() ? nearest : "";
}

} // namespace csi_doctor
