// Requests to the fusion daemon: the two attempts.
#include <algorithm>
#include <atomic>

#include <gtest/gtest.h>

#include "client/fusion.h"
#include "peers/fusion_daemon.h"
#include "support/fixtures.h"

using namespace csi_receiver;
using namespace std::chrono_literals;
using texts = std::vector<std::string>;

TEST(fusion, waits_longer_for_the_first_attempt_and_takes_a_late_reply) {
    EXPECT_EQ(fusion_timeouts_ms, (attempt_timeouts{5000, 2000}));
    const struct {
        attempt_timeouts timeouts_ms;
        std::chrono::milliseconds delay; // of the reply
        const char* replies[2];          // nullptr: none
        std::ptrdiff_t requests;
        bool is_answered;
    } rows[] = {
        {{5000, 1}, 100ms, {"{}", nullptr}, 1, true},
        {{50, 5000}, 400ms, {"{}", nullptr}, 2, true}, // on the same socket
        {{50, 5000}, 0ms, {nullptr, "{}"}, 2, true},
        {{5000, 5000}, 0ms, {"", "{}"}, 2, true},
        {{5000, 5000}, 0ms, {"[]", "{}"}, 1, false},
        {{60, 40}, 0ms, {nullptr, nullptr}, 2, false},
    };
    captured_output output;
    peers::journal journal;
    peers::fusion_daemon daemon(journal);
    const json::document request = make_request("x");
    for (const auto& row : rows) {
        journal.clear();
        std::atomic<int> asked{0};
        daemon.peer().set_delay(row.delay);
        daemon.answer_with([&](const std::string&) {
            const int at = asked++;
            const char* const reply = at < 2 ? row.replies[at] : nullptr;
            return reply != nullptr ? texts{reply} : texts{};
        });
        const stopwatch watch;
        EXPECT_EQ(fusion_request(request, row.timeouts_ms).IsObject(), row.is_answered);
        if (row.timeouts_ms[0] == 60) {
            EXPECT_GE(watch.elapsed(), 100ms);
        }
        // A busy machine may let the peer read a request only after the client has given up.
        EXPECT_TRUE(journal.wait_for(
            [&](const auto& all) {
                const auto is_request = [](const auto& one) { return one.to == "fusion"; };
                return std::count_if(all.begin(), all.end(), is_request) >= row.requests;
            },
            10s));
        const auto requests = journal.select("daemon", "fusion");
        EXPECT_EQ(static_cast<std::ptrdiff_t>(requests.size()), row.requests);
        EXPECT_EQ(requests.back().text, R"({"cmd":"x"})");
    }
}
