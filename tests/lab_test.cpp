// The peers misbehave exactly as ordered, and csi_lab shows each message for what it is.
#include <algorithm>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "core/core_request.h"
#include "lab/printer.h"
#include "lab/recording.h"
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
