// Runs the tests in a network of their own: the daemon's peers have fixed ports, and neither a
// running installation nor another test must meet them.
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

bool enter_own_network() {
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        return false;
    }
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", sizeof request.ifr_name - 1);
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    const bool up = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    close(fd);
    return up;
}

/// Where the system grants no network: one test after the other. Held until the process ends.
void wait_for_turn() {
    const int fd = open("/tmp/csi_receiver_tests.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0 || flock(fd, LOCK_EX) != 0) {
        std::perror("csi_receiver tests: no lock");
    }
}

} // namespace

int main(int argc, char* argv[]) {
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests) && !enter_own_network()) {
        wait_for_turn();
    }
    return RUN_ALL_TESTS();
}
