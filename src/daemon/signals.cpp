#include "daemon/signals.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "daemon/log.h"

namespace csi_receiver {
namespace {

pthread_t main_thread;
std::atomic<bool> termination_forwarded{false}; // pending for the main thread only

/// Some C libraries start a timer's thread with no signal blocked. A signal that such a thread
/// takes before it blocks all is passed on to the main thread, where the descriptor delivers it,
/// instead of ending the process.
extern "C" void forward_to_main_thread(int signal_number) {
    if (signal_number == SIGTERM || signal_number == SIGHUP) {
        termination_forwarded = true;
    }
    pthread_kill(main_thread, signal_number);
}

void forward(int signal_number) {
    struct sigaction action {};
    action.sa_handler = forward_to_main_thread;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    sigaction(signal_number, &action, nullptr);
}

} // namespace

int create_signal_descriptor() {
    main_thread = pthread_self();
    sigset_t set;
    sigemptyset(&set);
    for (const int signal_number : {SIGINT, SIGTERM, SIGPIPE, SIGHUP}) {
        sigaddset(&set, signal_number);
    }
    const int fd = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    sigaddset(&set, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    for (const int signal_number : {SIGINT, SIGTERM, SIGPIPE, SIGHUP, SIGALRM}) {
        forward(signal_number);
    }
    return fd;
}

bool read_signal(int fd) {
    signalfd_siginfo record{};
    static_assert(sizeof record == 128);
    const ssize_t count = read(fd, &record, sizeof record);
    const int error = errno;
    if (count < 0 && error != EAGAIN) {
        log_prefix() << "error reading signal descriptor: " << std::strerror(error);
    }
    if (count < static_cast<ssize_t>(sizeof record)) {
        return false;
    }
    switch (record.ssi_signo) {
    case SIGHUP:
        log_prefix() << "received hangup signal ";
        return true;
    case SIGTERM:
        log_prefix() << "received terminate signal ";
        return true;
    case SIGINT: // does not stop the daemon: kept for compatibility
        log_prefix() << "received interrupt signal ";
        return false;
    case SIGPIPE:
        log_prefix() << "received broken pipe signal ";
        return false;
    default:
        log_prefix() << "received unexpected signal number " << record.ssi_signo;
        return false;
    }
}

bool termination_pending() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGTERM) == 1 || sigismember(&pending, SIGHUP) == 1 ||
           termination_forwarded;
}

} // namespace csi_receiver
