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

using namespace csi_receiver;
using namespace std::chrono_literals;

namespace {

mode_t mode_of(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

} // namespace

TEST(attacks, a_log_name_opens_up_no_file_and_hangs_no_start) {
    temporary_directory directory;
    const std::string log = directory.path + "/x.log";
    const std::string target = directory.path + "/target";
    const auto link_to = [&](const std::string& path) {
        EXPECT_EQ(symlink(path.c_str(), log.c_str()), 0);
    };
    const auto make = [](const std::string& path, mode_t mode) {
        EXPECT_GE(descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, mode)).get(), 0);
    };
    const struct {
        const char* name;
        std::function<void()> prepare;
        mode_t file_mask;
        std::string looked_at;
        mode_t mode; // 0: there is no such file
        bool is_written;
    } rows[] = {
        {"new", [] {}, 0, log, 0644, true},
        {"new, with a strict mask", [] {}, 077, log, 0600, true},
        {"private", [&] { make(log, 0600); }, 0, log, 0600, true},
        {"link to an empty file",
         [&] {
             make(target, 0600);
             link_to(target);
         },
         0, target, 0600, true},
        {"link to nothing", [&] { link_to(target); }, 0, target, 0, false},
        {"link to a device", [&] { link_to("/dev/null"); }, 0, "/dev/null", 0666, true},
        {"link in a circle", [&] { link_to(log); }, 0, log, 0, false},
        {"FIFO without a reader", [&] { EXPECT_EQ(mkfifo(log.c_str(), 0600), 0); }, 0, log, 0600,
         false},
    };
    for (const auto& row : rows) {
        std::filesystem::remove(log);
        std::filesystem::remove(target);
        row.prepare();
        umask(row.file_mask);
        {
            const log_redirection redirection(directory.path, "x.log");
            EXPECT_EQ(log_out.is_open(), row.is_written) << row.name;
            log_prefix() << "a line";
            EXPECT_EQ(log_out.good(), row.is_written) << row.name;
        }
        log_out.close();
        EXPECT_EQ(mode_of(row.looked_at), row.mode) << row.name;
        if (geteuid() == 0) {
            chmod("/dev/null", 0666); // what a fault here would have done to everybody
        }
    }
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
    std::atomic<int> taken{0};
    std::atomic<int> taken_before_waiter{-1};
    std::atomic<bool> is_waiting{false};
    mutex.lock();
    std::thread waiter([&] {
        is_waiting = true;
        const std::lock_guard<threading::fair_mutex> lock(mutex);
        taken_before_waiter = taken.load();
    });
    ASSERT_TRUE(wait_until([&] { return is_waiting.load(); }));
    for (int again = 0; taken_before_waiter < 0 && again < 1000; ++again) {
        std::this_thread::sleep_for(1ms); // as long as a request takes
        mutex.unlock();
        mutex.lock(); // at once, before the waiter can wake
        ++taken;
    }
    mutex.unlock();
    waiter.join();
    EXPECT_LE(taken_before_waiter, 1);
}

TEST(attacks, memory_that_is_refused_is_an_exception) {
    EXPECT_THROW(json::system_memory::Malloc(SIZE_MAX - 4096), std::bad_alloc);
    EXPECT_THROW(json::system_memory::Realloc(nullptr, 0, SIZE_MAX - 4096), std::bad_alloc);
    EXPECT_EQ(json::system_memory::Malloc(0), nullptr);
}
