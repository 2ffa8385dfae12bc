#include "platform/descriptor.h"

#include <cerrno>
#include <utility>

#include <unistd.h>

namespace csi_receiver {

descriptor& descriptor::operator=(descriptor&& other) noexcept {
    if (this != &other) {
        reset();
        fd_ = other.release();
    }
    return *this;
}

void descriptor::reset() {
    if (is_open()) {
        const int error = errno;
        close(release());
        errno = error;
    }
}

int descriptor::release() {
    return std::exchange(fd_, -1);
}

} // namespace csi_receiver
