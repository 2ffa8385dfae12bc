#include "platform/poll_set.h"

#include <algorithm>
#include <cerrno>

namespace csi_receiver {
namespace {

auto find_record(poll_set& set, int fd) {
    return std::find_if(set.records.begin(), set.records.end(),
                        [fd](const pollfd& record) { return record.fd == fd; });
}

} // namespace

void poll_set_add(poll_set& set, int fd, short events) {
    const auto record = find_record(set, fd);
    if (record != set.records.end()) {
        record->events = events;
    } else if (fd >= 1) {
        set.records.push_back({fd, events, 0});
    }
}

int poll_set_modify(poll_set& set, int fd, short events) {
    const auto record = find_record(set, fd);
    if (record == set.records.end()) {
        errno = ENOENT;
        return -1;
    }
    record->events = events;
    return 0;
}

void poll_set_remove(poll_set& set, int fd) {
    const auto record = find_record(set, fd);
    if (record != set.records.end()) {
        set.records.erase(record);
    }
}

std::vector<poll_event> poll_set_wait(poll_set& set, int timeout_ms) {
    std::vector<poll_event> events;
    const int ready = poll(set.records.data(), static_cast<nfds_t>(set.records.size()), timeout_ms);
    if (ready < 0) {
        events.push_back({-1, POLLERR});
    }
    if (ready <= 0) {
        return events;
    }
    for (const pollfd& record : set.records) {
        if (record.revents < 1) {
            continue;
        }
        for (const int bit : {POLLIN, POLLPRI, POLLOUT, POLLERR, POLLHUP}) {
            if ((record.revents & bit) != 0) {
                events.push_back({record.fd, static_cast<std::uint32_t>(bit)});
            }
        }
    }
    return events;
}

} // namespace csi_receiver
