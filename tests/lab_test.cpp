// The lab's faults: soak and demo are worth something only when they come as ordered.
#include <algorithm>

#include <gtest/gtest.h>

#include "peers/core_service.h"
#include "platform/udp_client.h"

using namespace std::chrono_literals;

namespace {

/// Which of a hundred requests the peer with this seed loses: 'x'. The others it answers twice.
std::string losses(std::uint32_t seed) {
    peers::journal journal;
    peers::core_service_options options;
    options.seed = seed;
    peers::core_service core(journal, "127.0.0.1", options);
    core.peer().set_loss(0.3);
    core.peer().set_duplicate(true);
    csi_receiver::udp_client client("127.0.0.1", peers::core_service_port);
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
