#include "lab/live_page.h"

#include <chrono>
#include <csignal>
#include <functional>
#include <iostream>
#include <utility>

#include <unistd.h>

#include "lab/annotation.h"
#include "lab/console.h"
#include "lab/page_state.h"
#include "platform/json.h"

namespace csi_lab {
namespace {

constexpr std::size_t kept_items = 60'000; // as many as a page keeps
constexpr std::chrono::seconds longest_read(5);
constexpr std::uint64_t max_version = 1'000'000'000'000; // JavaScript's numbers have 53 bits

/// A line typed in the page: as if it were typed in the terminal, which shows it, too.
std::string execute_line(const std::string& line, session& of) {
    of.say("page> " + line);
    const command_result result = execute(line, of.on());
    for (const std::string& shown : result.lines) {
        of.say(shown);
    }
    if (result.quit) {
        kill(getpid(), SIGTERM); // the console waits for it
    }
    return "{}"; // what it changed comes with the feed
}

/// The state, which is large with many Bots, only if the page does not have it yet.
std::string read_feed(page_feed& feed, page_server::position from, session& of) {
    const page_feed::batch batch = feed.read(from.item, longest_read);
    const auto silent_for = feed.silent_for();
    const std::string state = describe_peers(of.on());
    const std::uint64_t version = std::hash<std::string>()(state) % max_version + 1;
    return "{\"run\":\"" + feed.run() + "\",\"next\":" + std::to_string(batch.next) +
           ",\"items\":" + batch.items + ",\"now\":" + std::to_string(feed.now()) +
           ",\"silent_for\":" + (silent_for ? std::to_string(*silent_for) : "null") +
           ",\"version\":" + std::to_string(version) +
           (version == from.version ? "" : ",\"state\":" + state) + "}";
}

} // namespace

live_page::live_page(page_address at)
    : at_(std::move(at))
    , feed_(kept_items) {}

live_page::serving::serving(live_page& page, session& of, printer& to)
    : feed_(page.feed_)
    , to_(to)
    , server_(page.at_, {describe_facts(of.on()),
                         [this, &of](auto from) { return read_feed(feed_, from, of); },
                         [&of](const std::string& line) { return execute_line(line, of); }}) {
    to_.say("The page: " + server_.place());
    to_.copy([this](const std::string& line) { feed_.note("said", line); });
}

live_page::serving::~serving() {
    to_.copy({});
    feed_.close(); // ends the reads that the server waits for
}

int view_recording(const std::string& path, const page_address& at) {
    const std::string items = format_annotated(read_recording(path));
    json::document facts(rapidjson::kObjectType);
    json::set(facts, "mode", "view", facts.GetAllocator());
    json::set(facts, "name", path, facts.GetAllocator());
    console signals;
    const page_server server(
        at, {json::write(facts), [&items](auto) { return "{\"items\":" + items + "}"; }, {}});
    std::cout << "The recording is at " << server.place() << " until Ctrl-C." << std::endl;
    const peers::waker never;
    while (signals.wait(never, std::chrono::hours(1))) {
    }
    return 0;
}

} // namespace csi_lab
