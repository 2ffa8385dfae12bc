// The peers misbehave exactly as ordered, and csi_lab shows each message for what it is.
#include <algorithm>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "core/core_request.h"
#include "lab/filter.h"
#include "lab/pairing.h"
#include "lab/printer.h"
#include "lab/recording.h"
#include "lab/replay.h"
#include "lab/traffic.h"
#include "peers/core_service.h"
#include "platform/udp_client.h"
#include "support/vectors.h"

using namespace std::chrono_literals;

namespace {

/// Which of a hundred requests the peer with this seed loses: 'x'. It answers the others twice.
std::string losses(std::uint32_t seed) {
    peers::journal journal;
    peers::core_service_options options;
    options.seed = seed;
    peers::core_service core(journal, "127.0.0.1", options);
    core.peer().set_loss(0.3);
    core.peer().set_duplicate(true);
    csi_receiver::udp_client client("127.0.0.1", csi_receiver::core_service_port);
    std::string result;
    while (result.size() < 100) {
        journal.clear();
        EXPECT_TRUE(client.send(R"({"ping":null})"));
        const auto is_done = [](const auto& said) {
            return said.size() == 3 || (said.size() == 2 && said.back().from == "lab");
        };
        EXPECT_TRUE(journal.wait_for(is_done, 10s));
        result += journal.size() == 2 ? 'x' : '.';
    }
    return result;
}

} // namespace

TEST(lab_faults, the_seed_decides_what_is_lost) {
    const std::string first = losses(7);
    EXPECT_EQ(losses(7), first);
    EXPECT_NE(losses(8), first);
    const auto count = std::count(first.begin(), first.end(), 'x');
    EXPECT_TRUE(count > 15 && count < 45) << first;
}

TEST(lab_printer, labels_each_message) {
    for_each_case("programs/lab_labels", [](const json::value& one) {
        const peers::message message{
            {}, wire_text(one["from"]), wire_text(one["to"]), wire_text(one["text"])};
        EXPECT_EQ(csi_lab::label_of(message), wire_text(one["label"]));
    });
}

TEST(lab_printer, escapes_control_characters) {
    const peers::message message{{}, "daemon", "core 127.0.0.1", "a\tb\nc\x1b[2J\n"};
    const std::string plain = csi_lab::format_line(message, false);
    EXPECT_EQ(plain.substr(plain.find(' ')), "  daemon           -> core 127.0.0.1    request      "
                                             "a\\x09b\\nc\\x1b[2J");
    const std::string colored = csi_lab::format_line(message, true);
    EXPECT_NE(colored.find("  \x1b[32mdaemon "), std::string::npos) << colored;
    EXPECT_NE(colored.find("request    \x1b[0m  a"), std::string::npos) << colored;
}

TEST(lab_recording, a_line_comes_back_as_it_was) {
    for_each_case("programs/recording_lines", [](const json::value& one) {
        const std::string line = wire_text(one["line"]);
        if (json::find(one, "wrong") == nullptr) {
            const csi_lab::entry read = csi_lab::parse_entry(line);
            EXPECT_EQ(csi_lab::format_entry(read), line);
            std::size_t index = 0;
            for_each(one, "bytes", [&](const json::value& byte) {
                EXPECT_EQ(static_cast<unsigned char>(read.text.at(index++)), byte.GetUint());
            });
            return;
        }
        std::string wrong;
        try {
            static_cast<void>(csi_lab::parse_entry(line));
        } catch (const std::runtime_error& failure) {
            wrong = failure.what();
        }
        EXPECT_NE(wrong.find(wire_text(one["wrong"])), std::string::npos) << wrong;
    });
}

TEST(lab_filter, knows_messages_by_their_words) {
    for_each_case("programs/lab_filters", [](const json::value& one) {
        std::vector<std::string> only;
        std::vector<std::string> without;
        for_each(one, "only", [&](const auto& word) { only.push_back(wire_text(word)); });
        for_each(one, "not", [&](const auto& word) { without.push_back(wire_text(word)); });
        csi_lab::filter filter(only, without);
        for (const char* const list : {"shows", "hides"}) {
            for_each(one, list, [&](const json::value& written) {
                const peers::message what{
                    {}, wire_text(written[0]), wire_text(written[1]), wire_text(written[2])};
                EXPECT_EQ(filter.shows(what), list == std::string("shows")) << json::write(written);
            });
        }
    });
}

TEST(lab_pairing, finds_the_request_of_each_answer) {
    for_each_case("programs/lab_pairs", [](const json::value& one) {
        csi_lab::pairing pairs;
        for (const json::value& row : one.GetArray()) {
            const auto request = pairs.request_of(csi_lab::parse_entry(wire_text(row["line"])));
            const json::value* const expected = json::find(row, "answers");
            ASSERT_EQ(request.has_value(), expected != nullptr) << json::write(row);
            EXPECT_EQ(request ? request->text : "", expected ? wire_text(*expected) : "")
                << json::write(row);
        }
    });
}

TEST(lab_replay, gives_each_request_its_recorded_answer) {
    for_each_case("programs/lab_replays", [](const json::value& one) {
        std::vector<csi_lab::entry> recording;
        for_each(one, "recording", [&](const json::value& line) {
            recording.push_back(csi_lab::parse_entry(wire_text(line)));
        });
        csi_lab::replay_book book(recording);
        for_each(one, "asks", [&](const json::value& ask) {
            const auto given = book.answer(csi_lab::parse_entry(wire_text(ask["request"])));
            EXPECT_EQ(given.difference.substr(0, ask["difference"].GetStringLength()),
                      wire_text(ask["difference"]));
            EXPECT_EQ(given.difference.empty(), ask["difference"].GetStringLength() == 0);
            ASSERT_EQ(given.answers.size(), ask["answers"].Size()) << json::write(ask);
            for (rapidjson::SizeType index = 0; index < ask["answers"].Size(); ++index) {
                const csi_lab::entry& answer = given.answers[index];
                EXPECT_EQ(answer.event.empty() ? answer.text : answer.event,
                          wire_text(ask["answers"][index]));
            }
        });
        std::vector<std::string> missing;
        for_each(one, "missing", [&](const auto& text) { missing.push_back(wire_text(text)); });
        EXPECT_EQ(book.missing_count(), missing.size());
        for (const csi_lab::entry& request : book.missing()) {
            EXPECT_EQ(std::count(missing.begin(), missing.end(), request.text), 1) << request.text;
        }
    });
}

TEST(lab_traffic, is_searched_from_any_line_on) {
    csi_lab::traffic seen;
    for (const char* const line : {"one", "two", "[three]", "two"}) {
        seen.add(line);
    }
    const auto found = [&](const char* text, std::size_t first) {
        return seen.find(csi_lab::pattern(text), first).value_or(99);
    };
    EXPECT_EQ(found("w", 0), 1U);
    EXPECT_EQ(found("w", 2), 3U);
    EXPECT_EQ(found("[three]", 0), 2U); // a piece of text
    EXPECT_EQ(found("/^[nt]/", 2), 3U); // an expression
    EXPECT_EQ(found("//", 0), 99U);     // too short for one
    EXPECT_EQ(found("four", 0), 99U);
    EXPECT_EQ(seen.latest(2).front(), "[three]");
    EXPECT_EQ(seen.latest(9).size(), 4U);
    for (int count = 0; count < 20'000; ++count) {
        seen.add("more"); // only so many are kept
    }
    EXPECT_EQ(found("two", 0), 99U);
    EXPECT_EQ(found("more", 0), 4U);
}
