// The schemas in protocol/ and the messages that the documents and the other tests have: each is
// told apart and judged, and what breaks its schema is what vectors/contract/ says.
#include <map>

#include "contract/judge.h"
#include "support/fixtures.h"
#include "support/vectors.h"

namespace {

using texts = std::vector<std::string>;

texts breaches(const contract::kind& what, const std::string& text) {
    texts result;
    for (const contract::breach& one : contract::judge(what, text)) {
        result.push_back(contract::describe(one));
    }
    return result;
}

/// The breaches in vectors/contract/, by the kind and the text of the message.
std::map<std::string, texts> listed_breaches() {
    std::map<std::string, texts> result;
    for (const std::string& file : vector_files("contract")) {
        const json::document vector = read_vector("contract/" + file);
        for_each(vector, "messages", [&result](const json::value& one) {
            texts& lines = result[wire_text(one["kind"]) + " " + wire_text(one["text"])];
            for_each(one, "breaches", [&](const auto& line) { lines.push_back(wire_text(line)); });
        });
    }
    return result;
}

} // namespace

TEST(contract, messages_are_told_apart) {
    for_each_case("programs/contract_kinds", [](const json::value& one) {
        const auto text = [&one](const char* name) {
            return std::string(json::find_string(one, name).value_or(""));
        };
        EXPECT_EQ(name_of(contract::classify({text("from"), text("to"), text("text"),
                                              text("request"), text("method"), text("path")})),
                  text("kind"));
    });
    EXPECT_EQ(breaches({}, "anything"), texts());
}

TEST(contract, each_breach_is_named) {
    for (const auto& [message, lines] : listed_breaches()) {
        const std::size_t blank = message.find(' ');
        EXPECT_EQ(
            breaches(contract::kind_named(message.substr(0, blank)), message.substr(blank + 1)),
            lines)
            << message;
    }
}

TEST(contract, long_messages_break_it) {
    const contract::kind engine{"core_reply", "engine"};
    const std::string longest = R"({"state":")" + std::string(4084, 'x') + "\"}";
    EXPECT_EQ(breaches(engine, longest), texts());
    EXPECT_EQ(breaches(engine, longest + " "),
              texts{"the message must be at most 4096 bytes long"});
}

TEST(contract, documents_and_conversations_keep_it) {
    const temporary_directory directory;
    ASSERT_EQ(std::system((CSI_RECEIVER_COLLECT " >" + directory.path + "/messages").c_str()), 0);
    const json::document messages = json::parse("{\"all\":" + directory.read("messages") + "}");
    const std::map<std::string, texts> listed = listed_breaches();
    for_each(messages, "all", [&listed](const json::value& one) {
        SCOPED_TRACE(json::write(one));
        const contract::exchange what{wire_text(one["from"]),
                                      wire_text(one["to"]),
                                      wire_text(one["text"]),
                                      wire_text(one["request"]),
                                      "",
                                      ""};
        const std::string name = name_of(contract::classify(what));
        EXPECT_EQ(name, wire_text(one["kind"]));
        const auto known = listed.find(name + " " + what.text);
        const bool excused = what.from != "daemon" && known != listed.end();
        EXPECT_EQ(breaches(contract::kind_named(name), what.text),
                  excused ? known->second : texts());
    });
}
