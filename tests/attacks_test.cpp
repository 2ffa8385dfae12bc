// What a stranger on the network or a name in the file system must not achieve.
#include <atomic>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "daemon/log.h"
#include "platform/descriptor.h"
#include "platform/fair_mutex.h"
#include "platform/json.h"
#include "support/fixtures.h"
#include "support/vectors.h"

using namespace csi_receiver;
using namespace std::chrono_literals;

// In each case a file or a FIFO is there already, or the log's name is a link. The mode of what is
// at the path afterwards is 0 if nothing is there.
TEST(attacks, a_log_name_opens_up_no_file_and_hangs_no_start) {
    for_each_case("programs/log_names", [](const json::value& one) {
        const temporary_directory directory;
        std::filesystem::current_path(directory.path);
        const auto text = [&one](const char* member) {
            return std::string(json::find_string(one, member).value_or(""));
        };
        EXPECT_EQ(text("link").empty() ? 0 : symlink(text("link").c_str(), "x.log"), 0);
        EXPECT_EQ(text("file").empty() ? 0 : mknod(text("file").c_str(), S_IFREG | 0600, 0), 0);
        EXPECT_EQ(text("fifo").empty() ? 0 : mkfifo(text("fifo").c_str(), 0600), 0);
        umask(static_cast<mode_t>(std::stoul("0" + text("mask"), nullptr, 8)));
        {
            const log_redirection redirection(directory.path, "x.log");
            EXPECT_EQ(log_out.is_open(), one["is_written"].GetBool());
            log_prefix() << "a line";
            EXPECT_EQ(log_out.good(), one["is_written"].GetBool());
        }
        log_out.close();
        struct stat status {};
        const bool is_there = stat(text("path").c_str(), &status) == 0;
        EXPECT_EQ(is_there ? status.st_mode & 07777U : 0, std::stoul(text("mode"), nullptr, 8));
        if (geteuid() == 0) {
            chmod("/dev/null", 0666); // what a fault here would have done to everybody
        }
    });
    std::filesystem::current_path("/");
}

TEST(attacks, a_fifo_that_nobody_empties_takes_what_it_can_hold) {
    temporary_directory directory;
    const std::string log = directory.path + "/x.log";
    ASSERT_EQ(mkfifo(log.c_str(), 0600), 0);
    const descriptor reader(open(log.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const log_redirection redirection(directory.path, "x.log");
    for (int line = 0; line < 30; ++line) { // more than the system keeps
        print(std::string(10000, 'x') + "\n");
    }
    std::vector<char> buffer(1000000);
    EXPECT_GE(read(reader.get(), buffer.data(), buffer.size()), 10001);
    log_out.close();
}

TEST(attacks, a_request_that_waits_is_served_before_one_that_comes_later) {
    threading::fair_mutex mutex;
    int overtaken = 0;
    for (int round = 0; round < 20; ++round) {
        int taken = 0;
        std::atomic<int> taken_before_waiter{-1};
        std::atomic<bool> is_waiting{false};
        mutex.lock();
        std::thread waiter([&] {
            is_waiting = true;
            const std::lock_guard<threading::fair_mutex> lock(mutex);
            taken_before_waiter = taken;
        });
        EXPECT_TRUE(wait_until([&is_waiting] { return is_waiting.load(); }));
        for (; taken_before_waiter < 0 && taken < 50; ++taken) {
            std::this_thread::sleep_for(1ms); // as long as a request takes
            mutex.unlock();
            mutex.lock(); // at once, before the waiter can wake
        }
        mutex.unlock();
        waiter.join();
        overtaken += taken_before_waiter > 1 ? 1 : 0;
    }
    EXPECT_LE(overtaken, 5); // the system may let a waiter pause before it gets there
}

TEST(attacks, memory_that_is_refused_is_an_exception) {
    EXPECT_THROW(json::system_memory::Malloc(SIZE_MAX - 4096), std::bad_alloc);
    EXPECT_THROW(json::system_memory::Realloc(nullptr, 0, SIZE_MAX - 4096), std::bad_alloc);
    EXPECT_EQ(json::system_memory::Malloc(0), nullptr);
}
