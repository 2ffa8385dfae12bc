// Stand before the C library's functions of the same names in the daemon under test, and fail when
// the injector says so.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <ctime>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "faults/injector.h"
#include "faults/page.h"

namespace {

using csi_faults::fault_for;

template<class function>
function* next(const char* name) {
    return reinterpret_cast<function*>(dlsym(RTLD_NEXT, name));
}

/// Whether the call must fail; sets errno.
bool fails(const char* call) {
    const int error = fault_for(call);
    errno = error != 0 ? error : errno;
    return error != 0;
}

bool memory_fails() {
    const int error = csi_faults::fault_for_memory();
    errno = error != 0 ? error : errno;
    return error != 0;
}

/// The name of a call by what its descriptor is, since the errors that can happen depend on it.
struct call_names {
    const char* file;
    const char* stream;
    const char* datagram;
    const char* other;
};

const char* name_by_descriptor(int fd, const call_names& names) {
    const int error = errno;
    int type = 0;
    socklen_t length = sizeof type;
    struct stat status {};
    const char* name = names.other;
    if (syscall(SYS_getsockopt, fd, SOL_SOCKET, SO_TYPE, &type, &length) == 0) {
        name = type == SOCK_DGRAM ? names.datagram : names.stream;
    } else if (syscall(SYS_fstat, fd, &status) == 0 && S_ISREG(status.st_mode)) {
        name = names.file;
    }
    errno = error;
    return name;
}

constexpr call_names read_names{"read.file", "read.stream", "read.datagram", "read.other"};
constexpr call_names write_names{"write.file", "write.stream", "write.datagram", "write.other"};
constexpr call_names receive_names{"recv.file", "recv.stream", "recv.datagram", "recv.other"};
constexpr call_names send_names{"send.file", "send.stream", "send.datagram", "send.other"};
constexpr call_names close_names{"close.file", "close.stream", "close.datagram", "close.other"};
constexpr call_names connect_names{"connect", "connect.stream", "connect.datagram", "connect"};

/// So that data remains: half of what has arrived, or of what is to be written.
std::size_t half_of_received(int fd) {
    int available = 0;
    syscall(SYS_ioctl, fd, FIONREAD, &available);
    return static_cast<std::size_t>(std::max(available / 2, 1));
}

std::size_t half(std::size_t length) {
    return std::max<std::size_t>(length / 2, 1);
}

} // namespace

// NOLINTBEGIN: the C library dictates names, and arguments of macros stand for lists
#define WRAP(name, call, parameters, arguments)                                                    \
    extern "C" int name parameters {                                                               \
        static auto* const real = next<int parameters>(#name);                                     \
        return fails(call) ? -1 : real arguments;                                                  \
    }
#define WRAP_TRANSFER(name, names, shortened, parameters, arguments)                               \
    extern "C" ssize_t name parameters {                                                           \
        static auto* const real = next<ssize_t parameters>(#name);                                 \
        const int error = fault_for(name_by_descriptor(fd, names));                                \
        if (error > 0 || error == csi_faults::end_of_file) {                                       \
            errno = error > 0 ? error : errno;                                                     \
            return error > 0 ? -1 : 0;                                                             \
        }                                                                                          \
        length =                                                                                   \
            error == csi_faults::short_count ? std::min<std::size_t>(length, shortened) : length;  \
        return real arguments;                                                                     \
    }
#define WRAP_OPEN(name)                                                                            \
    extern "C" int name(const char* path, int flags, ...) {                                        \
        static auto* const real = next<int(const char*, int, ...)>(#name);                         \
        va_list rest;                                                                              \
        va_start(rest, flags);                                                                     \
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;                     \
        va_end(rest);                                                                              \
        return fails("open") ? -1 : real(path, flags, mode);                                       \
    }
#define WRAP_FOPEN(name)                                                                           \
    extern "C" std::FILE* name(const char* path, const char* mode) {                               \
        static auto* const real = next<std::FILE*(const char*, const char*)>(#name);               \
        return fails("fopen") ? nullptr : real(path, mode);                                        \
    }
#define WRAP_FCNTL(name)                                                                           \
    extern "C" int name(int fd, int command, ...) {                                                \
        static auto* const real = next<int(int, int, ...)>(#name);                                 \
        va_list rest;                                                                              \
        va_start(rest, command);                                                                   \
        void* const argument = va_arg(rest, void*);                                                \
        va_end(rest);                                                                              \
        return fails("fcntl") ? -1 : real(fd, command, argument);                                  \
    }
WRAP_OPEN(open)
WRAP_OPEN(open64)
WRAP_FOPEN(fopen)
WRAP_FOPEN(fopen64)
WRAP_FCNTL(fcntl)
WRAP_FCNTL(fcntl64)
WRAP(stat, "stat", (const char* path, struct stat* to), (path, to))
WRAP(stat64, "stat", (const char* path, struct stat64* to), (path, to))
WRAP(fstat, "fstat", (int fd, struct stat* to), (fd, to))
WRAP(fstat64, "fstat", (int fd, struct stat64* to), (fd, to))
WRAP(ftruncate, "ftruncate", (int fd, off_t size), (fd, size))
WRAP(ftruncate64, "ftruncate", (int fd, off64_t size), (fd, size))
WRAP(mkdir, "mkdir", (const char* path, mode_t mode), (path, mode))
WRAP(rename, "rename", (const char* from, const char* to), (from, to))
WRAP(remove, "remove", (const char* path), (path))
WRAP(socket, "socket", (int domain, int type, int protocol), (domain, type, protocol))
WRAP(socketpair, "socketpair", (int domain, int type, int protocol, int ends[2]),
     (domain, type, protocol, ends))
WRAP(bind, "bind", (int fd, const sockaddr* address, socklen_t size), (fd, address, size))
WRAP(connect, name_by_descriptor(fd, connect_names),
     (int fd, const sockaddr* address, socklen_t size), (fd, address, size))
WRAP(getsockname, "getsockname", (int fd, sockaddr* address, socklen_t* size), (fd, address, size))
WRAP(getpeername, "getpeername", (int fd, sockaddr* address, socklen_t* size), (fd, address, size))
WRAP(getsockopt, "getsockopt", (int fd, int level, int option, void* value, socklen_t* size),
     (fd, level, option, value, size))
WRAP(setsockopt, "setsockopt", (int fd, int level, int option, const void* value, socklen_t size),
     (fd, level, option, value, size))
WRAP(poll, "poll", (pollfd * set, nfds_t size, int timeout), (set, size, timeout))
WRAP(signalfd, "signalfd", (int fd, const sigset_t* set, int flags), (fd, set, flags))
WRAP(sigtimedwait, "sigtimedwait", (const sigset_t* set, siginfo_t* info, const timespec* timeout),
     (set, info, timeout))
WRAP(timer_create, "timer_create", (clockid_t clock, sigevent* event, timer_t* id),
     (clock, event, id))
WRAP_TRANSFER(read, read_names, 1U, (int fd, void* to, std::size_t length), (fd, to, length))
WRAP_TRANSFER(write, write_names, half(length), (int fd, const void* from, std::size_t length),
              (fd, from, length))
WRAP_TRANSFER(send, send_names, half(length),
              (int fd, const void* from, std::size_t length, int flags), (fd, from, length, flags))
WRAP_TRANSFER(recv, receive_names, half_of_received(fd),
              (int fd, void* to, std::size_t length, int flags), (fd, to, length, flags))
WRAP_TRANSFER(recvfrom, receive_names, half_of_received(fd),
              (int fd, void* to, std::size_t length, int flags, sockaddr* from, socklen_t* size),
              (fd, to, length, flags, from, size))

/// The system closes the descriptor even when it reports an error.
extern "C" int close(int fd) {
    static auto* const real = next<int(int)>("close");
    const int error = fault_for(name_by_descriptor(fd, close_names));
    const int result = real(fd);
    errno = error != 0 ? error : errno;
    return error != 0 ? -1 : result;
}

extern "C" int nanosleep(const timespec* time, timespec* left) {
    static auto* const real = next<int(const timespec*, timespec*)>("nanosleep");
    if (!fails("nanosleep")) {
        return real(time, left);
    }
    if (left != nullptr) {
        *left = *time;
    }
    return -1;
}

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) {
    return memory_fails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    return memory_fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
    return memory_fails() ? nullptr : __libc_realloc(memory, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return memory_fails() ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** to, std::size_t alignment, std::size_t size) {
    if (memory_fails()) {
        return ENOMEM;
    }
    *to = __libc_memalign(alignment, size);
    return *to == nullptr ? ENOMEM : 0;
}

using main_function = int(int, char**, char**);

static main_function* daemon_main;

static int counted_main(int argc, char** argv, char** environment) {
    csi_faults::begin_counting();
    // cppcheck-suppress AssignmentAddressToInteger
    const int status = daemon_main(argc, argv, environment);
    csi_faults::end_counting();
    return status;
}

int __libc_start_main(main_function* function, int argc, char** argv, void (*init)(),
                      void (*fini)(), void (*linker_fini)(), void* stack_end) {
    using start_function =
        int(main_function*, int, char**, void (*)(), void (*)(), void (*)(), void*);
    daemon_main = function;
    auto* const real = next<start_function>("__libc_start_main");
    return real(counted_main, argc, argv, init, fini, linker_fini, stack_end);
}

} // extern "C"
// NOLINTEND
