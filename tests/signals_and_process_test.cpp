// Signals and their descriptor; kernel and thread priorities.
#include <csignal>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "daemon/process.h"
#include "daemon/signals.h"
#include "support/fixtures.h"

using namespace csi_receiver;

namespace {

bool blocks_daemon_signals() {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    bool blocks = true;
    for (const int number : {SIGINT, SIGTERM, SIGPIPE, SIGHUP, SIGALRM}) {
        blocks = blocks && sigismember(&mask, number) == 1;
    }
    return blocks;
}

/// Not sched_getscheduler, which some C libraries do not have.
int policy_of_this_thread() {
    int policy = -1;
    sched_param parameters{};
    pthread_getschedparam(pthread_self(), &policy, &parameters);
    return policy;
}

} // namespace

TEST(signals, each_signal_and_its_line) {
    captured_output output;
    const int fd = create_signal_descriptor();
    ASSERT_GE(fd, 0);
    ASSERT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_TRUE(blocks_daemon_signals());
    EXPECT_FALSE(read_signal(fd));
    for (const auto& [number, terminates, line] :
         {std::tuple(SIGHUP, true, "received hangup signal "),
          {SIGINT, false, "received interrupt signal "},
          {SIGPIPE, false, "received broken pipe signal "},
          {SIGTERM, true, "received terminate signal "}}) {
        kill(getpid(), number);
        EXPECT_EQ(termination_pending(), terminates);
        EXPECT_EQ(read_signal(fd), terminates) << number;
        EXPECT_EQ(output.lines(), texts{line});
    }
    kill(getpid(), SIGALRM);
    EXPECT_FALSE(read_signal(fd));
    EXPECT_EQ(output.lines(), texts{});

    // A thread that does not block the signals hands them to the main thread.
    std::thread careless([] {
        sigset_t none;
        sigemptyset(&none);
        pthread_sigmask(SIG_SETMASK, &none, nullptr);
        kill(getpid(), SIGTERM);
        pthread_kill(pthread_self(), SIGHUP);
    });
    careless.join();
    std::thread([] { EXPECT_TRUE(termination_pending()) << "on any thread"; }).join();
    EXPECT_TRUE(read_signal(fd));
    EXPECT_TRUE(read_signal(fd));
    EXPECT_FALSE(read_signal(fd));
    close(fd);

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    signalfd_siginfo record{};
    record.ssi_signo = 40;
    ASSERT_EQ(write(ends[1], &record, sizeof record), 128);
    ASSERT_EQ(write(ends[1], &record, 100), 100);
    static_cast<void>(output.lines());
    EXPECT_FALSE(read_signal(ends[0]));
    EXPECT_FALSE(read_signal(ends[0])); // half a record does not count
    close(ends[0]);
    EXPECT_FALSE(read_signal(ends[0]));
    EXPECT_EQ(output.lines(), (texts{"received unexpected signal number 40",
                                     "error reading signal descriptor: Bad file descriptor"}));
    close(ends[1]);
}

TEST(signals, are_blocked_even_when_the_descriptor_is_refused) {
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    const rlimit none{0, files.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_LT(create_signal_descriptor(), 0);
    setrlimit(RLIMIT_NOFILE, &files);
    EXPECT_TRUE(blocks_daemon_signals());
}

TEST(process, kernel_description_and_priorities) {
    EXPECT_TRUE(mentions_preemption("#1 SMP PREEMPT Thu Jan 1 00:00:00 UTC 2026"));
    EXPECT_FALSE(mentions_preemption("#1 SMP Thu Jan 1 00:00:00 UTC 2026"));
    EXPECT_EQ(get_priority(pthread_self()), 0);
    const bool granted = set_realtime_priority(pthread_self(), 7) == 0;
    for (const auto& [wanted, clamped] : {std::pair(1000, 99), std::pair(-5, 1), std::pair(7, 7)}) {
        if (granted) {
            EXPECT_EQ(set_realtime_priority(pthread_self(), wanted), 0);
            EXPECT_EQ(get_priority(pthread_self()), clamped);
            EXPECT_EQ(policy_of_this_thread(), SCHED_FIFO);
        }
    }
}
