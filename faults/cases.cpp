#include "faults/cases.h"

#include <cerrno>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "faults/page.h"

namespace csi_faults {
namespace {

const std::map<std::string, int> error_numbers = {
    {"EACCES", EACCES},
    {"EADDRINUSE", EADDRINUSE},
    {"EADDRNOTAVAIL", EADDRNOTAVAIL},
    {"EAGAIN", EAGAIN},
    {"EBUSY", EBUSY},
    {"ECONNREFUSED", ECONNREFUSED},
    {"ECONNRESET", ECONNRESET},
    {"EDQUOT", EDQUOT},
    {"EHOSTUNREACH", EHOSTUNREACH},
    {"EINTR", EINTR},
    {"EIO", EIO},
    {"EMFILE", EMFILE},
    {"ENETUNREACH", ENETUNREACH},
    {"ENFILE", ENFILE},
    {"ENOBUFS", ENOBUFS},
    {"ENOENT", ENOENT},
    {"ENOMEM", ENOMEM},
    {"ENOSPC", ENOSPC},
    {"EPERM", EPERM},
    {"EPIPE", EPIPE},
    {"EROFS", EROFS},
    {"ETIMEDOUT", ETIMEDOUT},
    {"SHORT", short_count},
    {"EOF", end_of_file},
};

/// What the manual pages name and what can happen to these calls of the daemon. EINTR and EAGAIN
/// are passing states: they happen once. Left out are the errors of wrong arguments (EBADF,
/// EFAULT, EINVAL and the like), and so the calls that know no others.
struct errors {
    const char* call;
    const char* once;
    const char* lasting; // once, and from then on
};

constexpr errors known_errors[] = {
    {"memory", "", "ENOMEM"},
    {"open", "EINTR ENOENT EIO ENFILE ENOMEM", "EACCES EMFILE ENOSPC EROFS"},
    {"fopen", "EINTR EACCES ENFILE ENOMEM EIO", "EMFILE"},
    {"stat", "ENOMEM", "EACCES ENOENT"},
    {"fstat", "EIO", "ENOMEM"},
    {"ftruncate", "EINTR EPERM", "EIO"},
    {"mkdir", "EROFS ENOMEM", "EACCES ENOSPC"},
    {"rename", "EBUSY EDQUOT ENOENT ENOMEM EROFS", "EACCES EIO ENOSPC"},
    {"remove", "EBUSY ENOENT ENOMEM EROFS", "EACCES EIO"},
    {"fcntl", "", "EACCES"},
    {"socket", "EACCES ENFILE ENOMEM", "EMFILE ENOBUFS"},
    {"socketpair", "ENFILE ENOMEM", "EMFILE"},
    {"bind", "EADDRINUSE ENOMEM", "EACCES"},
    {"connect.datagram", "EINTR EADDRNOTAVAIL EPERM EAGAIN", "EACCES ENETUNREACH"},
    {"connect.stream", "EADDRNOTAVAIL EAGAIN ENETUNREACH EINTR", "EACCES ECONNREFUSED ETIMEDOUT"},
    {"getsockname", "", "ENOBUFS"},
    {"getpeername", "", "ENOBUFS"},
    {"getsockopt", "", "ENOMEM"},
    {"setsockopt", "", "ENOMEM"},
    {"signalfd", "ENFILE ENOMEM", "EMFILE"},
    {"timer_create", "ENOMEM", "EAGAIN"},
    {"sigtimedwait", "EINTR", "EAGAIN"},
    {"nanosleep", "EINTR", ""},
    {"poll", "EINTR", "ENOMEM"},
    {"read.file", "EINTR SHORT EOF", "EIO"},
    {"read.other", "EINTR EAGAIN", ""},
    {"write.file", "EINTR EDQUOT SHORT", "EIO ENOSPC"},
    {"write.other", "EINTR EAGAIN", ""},
    {"send.datagram", "EINTR EAGAIN ECONNREFUSED ENOMEM EHOSTUNREACH", "ENOBUFS EPERM ENETUNREACH"},
    {"send.stream", "EINTR EAGAIN ECONNRESET ETIMEDOUT ENOMEM SHORT", "ENOBUFS EPIPE"},
    {"recv.datagram", "EINTR EAGAIN", "ECONNREFUSED ENOMEM"},
    {"recv.stream", "EINTR EAGAIN ETIMEDOUT SHORT EOF", "ECONNRESET ENOMEM"},
    {"close.file", "EINTR EDQUOT", "EIO ENOSPC"},
    {"close.stream", "EINTR", "EIO"},
    {"close.datagram", "EINTR", "EIO"},
    {"close.other", "EINTR", "EIO"},
};

/// Calls that the C library makes for itself, which only strace can make fail. Counted from the
/// start of the process and in each thread by itself.
struct traced_call {
    const char* name;
    const char* error;
    unsigned occurrences;
    bool lasting;
};

constexpr traced_call traced_calls[] = {
    {"clone3", "EAGAIN", 2, true},
    {"clone3", "ENOMEM", 2, true},
    {"write", "EPIPE", 3, true},
    {"write", "EINTR", 3, false},
    {"rt_sigtimedwait", "EINTR", 3, false},
    {"clock_nanosleep", "EINTR", 3, false},
};

struct call_stack {
    std::string call;
    std::string stack;
    unsigned count = 0;
};

void add(std::vector<fault_case>& to, fault_case one, const std::string& list, bool lasting) {
    std::istringstream words(list);
    while (words >> one.error) {
        one.from_then_on = false;
        to.push_back(one);
        if (lasting) {
            one.from_then_on = true;
            to.push_back(one);
        }
    }
}

/// A call stack occurs again and again in the main loop: its first two calls stand for the others.
void add_cases(std::vector<fault_case>& to, const call_stack& from) {
    for (const errors& known : known_errors) {
        if (from.call == known.call) {
            add(to, {from.call, from.stack, 1, "", false}, known.once, false);
            add(to, {from.call, from.stack, 1, "", false}, known.lasting, true);
            if (from.count > 1) {
                add(to, {from.call, from.stack, 2, "", false}, known.once, false);
                add(to, {from.call, from.stack, 2, "", false}, known.lasting, false);
            }
        }
    }
}

void add_traced_cases(std::vector<fault_case>& to) {
    for (const traced_call& traced : traced_calls) {
        for (unsigned occurrence = 1; occurrence <= traced.occurrences; ++occurrence) {
            add(to, {"strace/" + std::string(traced.name), "0", occurrence, "", false},
                traced.error, traced.lasting);
        }
    }
}

} // namespace

std::string fault_case::name() const {
    return call + "@" + stack + "#" + std::to_string(occurrence) + ":" + error + ":" +
           (from_then_on ? "ever" : "once");
}

std::string fault_case::variable() const {
    return call + " " + stack + " " + std::to_string(occurrence) + " " +
           std::to_string(error_numbers.at(error)) + (from_then_on ? " 1" : " 0");
}

fault_case parse_case(const std::string& name) {
    fault_case result;
    std::string occurrence;
    std::string when;
    std::istringstream from(name);
    std::getline(from, result.call, '@');
    std::getline(from, result.stack, '#');
    std::getline(from, occurrence, ':');
    std::getline(from, result.error, ':');
    std::getline(from, when);
    const bool well_formed = error_numbers.count(result.error) != 0 &&
                             occurrence.find_first_not_of("0123456789") == std::string::npos &&
                             !occurrence.empty() && (when == "once" || when == "ever");
    if (!well_formed) {
        throw std::runtime_error("not a case: " + name);
    }
    result.occurrence = static_cast<unsigned>(std::stoul(occurrence));
    result.from_then_on = when == "ever";
    return result;
}

std::vector<fault_case> cases_for(const std::string& record) {
    std::vector<fault_case> result;
    std::ifstream lines(record);
    for (std::string line; std::getline(lines, line);) {
        call_stack one;
        std::istringstream(line) >> one.call >> one.stack >> one.count;
        add_cases(result, one);
    }
    add_traced_cases(result);
    return result;
}

} // namespace csi_faults
